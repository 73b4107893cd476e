#include "jobs/proposal.h"

#include <algorithm>
#include <cmath>

#include "jobs/errors.h"
#include "jobs/failure.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace {

double magnitude(const SeamStep& step) {
    return std::hypot(step[0], step[1], step[2]);
}

std::string text(const SeamStep& step) {
    return "Y " + decimal_text(step[0]) + ", U " + decimal_text(step[1]) + ", V " + decimal_text(step[2]);
}

bool changes_nothing(const Correction& correction) {
    return std::all_of(correction.begin(), correction.end(),
                       [](int offset) { return offset == CORRECT_NONE || offset == 0; });
}

std::string percent_text(double share) {
    return std::to_string(std::lround(share * 100)) + " %";
}

}  // namespace

Proposal::Proposal(const Json& match, const ExportJob& job)
    : turns_{job.options.turn1, job.options.turn2 + match.at("turn").get<double>()},
      turn_(match.at("turn").get<double>()),
      corrections_{match.at("correct1").get<Correction>(), match.at("correct2").get<Correction>()},
      gains_{match.at("gain1").get<Gains>(), match.at("gain2").get<Gains>()},
      step_(match.at("step").get<SeamStep>()),
      step_turned_(match.at("step_turned").get<SeamStep>()),
      step_corrected_(match.at("step_corrected").get<SeamStep>()),
      step_gained_(match.at("step_gained").get<SeamStep>()),
      compared_(match.at("compared").get<double>()),
      confidence_(match.at("confidence").get<double>()),
      warning_(match.at("warning").get<std::string>()) {}

// What leaves nearly all of the step is of no use: noise is left of every one.
Proposal::Way Proposal::way() const {
    const double gained = magnitude(step_gained_);
    const double corrected = magnitude(step_corrected_);
    if (std::min(gained, corrected) > 0.8 * magnitude(step_turned_)) {
        return kNeither;
    }
    return gained <= corrected ? kGains : kCorrections;
}

const SeamStep& Proposal::step_left() const {
    switch (way()) {
        case kGains:
            return step_gained_;
        case kCorrections:
            return step_corrected_;
        default:
            return step_turned_;
    }
}

void Proposal::apply(ExportJob* job) const {
    NQ360_EXPORT_OPTIONS& options = job->options;
    options.turn1 = turns_[0];
    options.turn2 = turns_[1];
    if (way() == kGains) {
        std::copy(gains_[0].begin(), gains_[0].end(), options.gain1);
        std::copy(gains_[1].begin(), gains_[1].end(), options.gain2);
    } else if (way() == kCorrections) {
        std::copy(corrections_[0].begin(), corrections_[0].end(), options.correct1);
        std::copy(corrections_[1].begin(), corrections_[1].end(), options.correct2);
    }
}

std::string Proposal::options() const {
    std::string line;
    const auto add = [&line](const std::string& option) { line += (line.empty() ? "" : " ") + option; };
    for (int lens = 0; lens < 2; ++lens) {
        if (turns_[lens] != 0) {
            add("--turn" + std::to_string(lens + 1) + " " + number_text(turns_[lens]));
        }
    }
    for (int lens = 0; lens < 2; ++lens) {
        const std::string number = std::to_string(lens + 1);
        if (way() == kGains && gains_[lens] != kNoGains) {
            add("--gain" + number + " " + gains_text(gains_[lens]));
        } else if (way() == kCorrections && !changes_nothing(corrections_[lens])) {
            add("--correct" + number + " " + correction_text(corrections_[lens]));
        }
    }
    return line;
}

std::string Proposal::words() const {
    std::string sentences;
    if (turn_ != 0) {
        sentences += "Lens 2 is turned by " + number_text(std::abs(turn_)) + " degrees against lens 1.\n";
    }
    const double factor = gains_[0][0] / gains_[1][0];
    if (way() == kGains && factor != 1) {
        sentences += std::string("Lens 2 is ") + (factor > 1 ? "brighter" : "darker") + " by a factor of " +
                     number_text(std::round(100 * std::max(factor, 1 / factor)) / 100) + ".\n";
    }
    if (options().empty()) {
        sentences += "The lenses meet already: the step at the seam is " + text(step_) + ".";
    } else {
        const double fall = std::max(0.0, 1 - magnitude(step_left()) / magnitude(step_));
        sentences += "The step at the seam falls by " + percent_text(fall) + ", from " + text(step_) + " to " +
                     text(step_left()) + ".";
    }
    return sentences + "\n" + percent_text(compared_) + " of the seam could be compared; confidence in the turn " +
           percent_text(confidence_) + ".";
}

std::optional<Proposal> propose(const ExportJob& job, const ReplyHandler& handler, Json* reply) {
    const Outcome outcome = match_lenses(job, handler);
    if (outcome.state == NQ360_CANCELLED) {
        return {};
    }
    *reply = read_match(outcome.reply);
    if (outcome.state != NQ360_FINISHED) {
        throw CommandError(export_failure(*reply, job));
    }
    return Proposal(*reply, job);
}

std::optional<Proposal> propose(const ExportJob& job, Json* reply) {
    const Stoppable stoppable("these pictures are compared");
    Progress progress("places", false);
    const auto show = [&progress](NQ360_STATE state, const std::string& told) {
        const int64_t count = last_number(told, "frame_count");
        state == NQ360_STARTED ? progress.begin(count) : progress.advance(count);
        return interrupted();
    };
    std::optional<Proposal> proposal = propose(job, show, reply);
    return interrupted() ? std::nullopt : proposal;
}
