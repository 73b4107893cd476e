// nq360 audio
#include "commands/command.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/job.h"
#include "jobs/library.h"
#include "jobs/replies.h"
#include "terminal/interrupt.h"

namespace {

class Audio : public Command {
  public:
    explicit Audio(CLI::App& app)
        : Command(
              app, "audio",
              "Writes the sound of a movie to a file of its own. It is 16-bit stereo PCM unless AAC is asked for.") {
        parser().add_option("MOVIE", job_.movie, "movie (.mov, .mp4)")->required();
        parser()
            .add_option("OUT", output_,
                        "sound file (.wav, .mov, .caf, .aiff; .m4a of AAC); in a folder it is called after MOVIE")
            ->required();
        parser().add_flag("--aac", job_.aac, "write AAC");
        parser().add_flag("-f,--force", force_, "replace OUT when it exists");
        add_loudness();
    }

  private:
    int run() override {
        check_input(job_.movie, "the movie");
        output_ = output_file(output_, job_.movie, job_.aac ? ".m4a" : ".wav");
        check_output(output_, force_, {job_.movie});
        job_.output = output_;
        job_.cancel_path = cancel_path();
        double seconds = 0;
        const JobWords words = {Operation::kSound, "packets", "this packet is written"};
        const auto job = [this](const ReplyHandler& handler) { return extract_sound(job_, handler); };
        const Outcome outcome = run_job(output_, words, job, &seconds);
        if (outcome.state == NQ360_CANCELLED) {
            console().complain("cancelled; nothing is changed");
            return kCancelled;
        }
        if (outcome.state != NQ360_FINISHED) {
            throw CommandError(sound_failure(read_reply(outcome.reply, Operation::kSound), job_.movie, output_));
        }
        if (!console().quiet()) {
            console().print(printable(output_) + ": the sound of " + printable(job_.movie) + "\n");
        }
        return kDone;
    }

    SoundJob job_;
    std::string output_;
    bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> make_audio(CLI::App& app) {
    return std::make_unique<Audio>(app);
}
