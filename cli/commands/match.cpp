// nq360 match
#include <algorithm>
#include <cmath>

#include "commands/command.h"
#include "jobs/errors.h"
#include "jobs/lens_pair.h"
#include "jobs/pair_options.h"
#include "jobs/seam.h"
#include "terminal/progress.h"

namespace {

std::string text(const SeamStep& step) {
    return "Y " + decimal_text(step[0]) + ", U " + decimal_text(step[1]) + ", V " + decimal_text(step[2]);
}

std::string comparison(const SeamStep& before, const SeamStep& after) {
    const double fall = std::max(0.0, 1 - magnitude(after) / magnitude(before));
    return "The step at the seam falls by " + std::to_string(std::lround(fall * 100)) + " %, from " + text(before) +
           " to " + text(after) + ".";
}

bool changes_nothing(const Correction& correction) {
    return correction.y == CORRECT_NONE && correction.u == CORRECT_NONE && correction.v == CORRECT_NONE;
}

class Match : public Command {
  public:
    explicit Match(CLI::App& app)
        : Command(app, "match",
                  "Proposes corrections that make the lenses meet in brightness and colour. They are printed as the "
                  "export takes them; how much they help is told beside.") {
        add_lenses(parser(), pair_);
        add_turns(parser(), pair_);
        add_starts(parser(), pair_);
        add_loudness();
    }

  private:
    int run() override {
        LensPair pair = read_pair(pair_);
        const Seam seam(pair);
        const SeamStep before = seam.step(pair);
        const std::array<Correction, 2> corrections = closing_corrections(before);
        correct(&pair.pictures[0], corrections[0]);
        correct(&pair.pictures[1], corrections[1]);
        console().print("--correct1 " + correction_text(corrections[0]) + " --correct2 " +
                        correction_text(corrections[1]) + "\n");
        const bool meet_already = std::all_of(corrections.begin(), corrections.end(), changes_nothing);
        console().tell(meet_already ? "The lenses meet already: the step at the seam is " + text(before) + "."
                                    : comparison(before, seam.step(pair)));
        return kDone;
    }

    PairOptions pair_;
};

}  // namespace

std::unique_ptr<Command> make_match(CLI::App& app) {
    return std::make_unique<Match>(app);
}
