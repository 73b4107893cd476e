// nq360 join
#include <filesystem>

#include "commands/command.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/input_files.h"
#include "jobs/job.h"
#include "jobs/library.h"
#include "jobs/replies.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace {

class Join : public Command {
  public:
    explicit Join(CLI::App& app)
        : Command(
              app, "join",
              "Puts the parts of a movie, which 'nq360 export --part' has made on any machines, together. Nothing is "
              "coded anew: the movie is that of one export in every byte. Parts that are missing, damaged, given "
              "twice or of another movie are named.") {
        parser()
            .add_option("PART", names_, "all parts of the movie, in any order, and last the movie (.mov, .mp4)")
            ->option_text("PART... OUT")
            ->required()
            ->expected(2, -1);
        parser().add_flag("--json", json_, "print the library's replies, one JSON object a line");
        parser().add_flag("-f,--force", force_, "replace OUT when it exists");
        add_loudness();
    }

  private:
    int run() override {
        JoinJob job;
        job.output = names_.back();
        job.files.assign(names_.begin(), names_.end() - 1);
        check(job);
        job.cancel_path = cancel_path();
        double seconds = 0;
        const JobWords words = {Operation::kExport, "frames", "this frame is written", json_};
        const auto function = [&job](const ReplyHandler& handler) { return join_shares(job, handler); };
        const Outcome outcome = run_job(job.output, words, function, &seconds);
        const Json reply = read_reply_with_state(outcome.state, outcome.reply, Operation::kExport);
        if (json_) {
            console().print(json_line(reply));
        }
        if (outcome.state == NQ360_CANCELLED) {
            console().complain("cancelled; nothing is changed");
            return kCancelled;
        }
        if (outcome.state != NQ360_FINISHED) {
            throw CommandError(join_failure(reply, job));
        }
        if (!console().quiet() && !json_) {
            console().print(printable(job.output) + ": " + std::to_string(job.files.size()) + " parts joined, in " +
                            decimal_text(seconds) + " s\n");
        }
        return kDone;
    }

    void check(const JoinJob& job) const {
        for (const std::string& file : job.files) {
            check_input(file, "a part of a movie");
            check_output(job.output, true, {file});
        }
        const std::string extension = extension_of(job.output);
        if (extension != ".mov" && extension != ".mp4") {
            throw UsageError(printable(job.output) +
                             ": is to be the movie; let its name, the last one, end in .mov or "
                             ".mp4");
        }
        check_output(job.output, force_, {});
    }

    std::vector<std::string> names_;
    bool json_ = false;
    bool force_ = false;
};

}  // namespace

std::unique_ptr<Command> make_join(CLI::App& app) {
    return std::make_unique<Join>(app);
}
