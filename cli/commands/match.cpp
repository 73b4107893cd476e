// nq360 match
#include "commands/command.h"
#include "jobs/errors.h"
#include "jobs/pair_arguments.h"
#include "jobs/proposal.h"

namespace {

class Match : public Command {
  public:
    explicit Match(CLI::App& app)
        : Command(app, "match",
                  "Proposes what makes the lenses meet in direction, brightness and colour. It is printed as the "
                  "export takes it; what it does is told beside. Movies are looked at in several places.") {
        add_lenses(parser(), pair_);
        add_turns(parser(), pair_);
        add_range(parser(), pair_);
        parser().add_flag("--json", json_, "print the library's reply, one JSON object");
        add_loudness();
    }

  private:
    int run() override {
        check_lenses(pair_);
        check_range(pair_);
        ExportJob job;
        fill(pair_, &job);
        Json reply;
        const std::optional<Proposal> proposal = propose(job, &reply);
        if (!proposal) {
            console().complain("cancelled");
            return kCancelled;
        }
        if (json_) {
            console().print(json_line(reply));
        }
        if (!json_) {
            console().print(proposal->options() + "\n");
            console().tell(proposal->words());
        }
        if (!proposal->warning().empty()) {
            console().complain(printable(proposal->warning()));
            return kFailed;
        }
        return kDone;
    }

    PairArguments pair_;
    bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> make_match(CLI::App& app) {
    return std::make_unique<Match>(app);
}
