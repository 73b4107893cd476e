// nq360 audio
#include "commands/command.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/job.h"
#include "jobs/library.h"
#include "jobs/replies.h"

namespace {

class Audio : public Command {
  public:
    explicit Audio(CLI::App& app)
        : Command(app, "audio", "Writes the sound of a movie to a file of its own. It is 16-bit stereo PCM.") {
        parser().add_option("MOVIE", movie_, "movie (.mov, .mp4)")->required();
        parser().add_option("OUT", output_, "sound file (.wav, .mov, .caf, .aiff)")->required();
        parser().add_flag("-f,--force", force_, "replace OUT when it exists");
        add_loudness();
    }

  private:
    int run() override {
        check_output(output_, force_, {movie_});
        double seconds = 0;
        const auto job = [this](const std::string& cancel_path, const FrameHandler& handler) {
            return extract_sound(movie_, output_, cancel_path, handler);
        };
        const Outcome outcome = run_job(output_, "packets", job, &seconds);
        if (outcome.state == NQ360_CANCELLED) {
            console().complain("cancelled");
            return kCancelled;
        }
        // An end that looks well may still tell of a failure while writing.
        if (outcome.state != NQ360_FINISHED || is_error(outcome.reply)) {
            throw CommandError(sound_failure(read_reply(outcome.reply, Operation::kSound), movie_, output_));
        }
        if (!console().quiet()) {
            console().print(printable(output_) + ": the sound of " + printable(movie_) + "\n");
        }
        return kDone;
    }

    std::string movie_;
    std::string output_;
    bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> make_audio(CLI::App& app) {
    return std::make_unique<Audio>(app);
}
