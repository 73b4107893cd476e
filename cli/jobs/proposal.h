// What a match of the lenses proposes.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "jobs/arguments.h"
#include "jobs/library.h"
#include "jobs/replies.h"

// By how much lens 2 differs from lens 1 at the seam, for Y, U and V.
using SeamStep = std::array<double, 3>;

class Proposal {
  public:
    // Out of the reply to a match of `job`.
    Proposal(const Json& match, const ExportJob& job);

    // Sets what is proposed: the turns, and gains or corrections, whichever leaves less of the step, if they help.
    void apply(ExportJob* job) const;

    // The same as it is typed: "--turn2 1.5 --gain1 1.1,1,1 --gain2 0.9,1,1"; empty when the lenses meet already.
    std::string options() const;

    // Sentences that say what it does.
    std::string words() const;

    // Why the halves may not belong together, or empty.
    const std::string& warning() const { return warning_; }

  private:
    enum Way { kNeither, kGains, kCorrections };
    Way way() const;
    const SeamStep& step_left() const;

    double turns_[2];  // degrees, those of the job included
    double turn_;      // what is added to lens 2's
    Correction corrections_[2];
    Gains gains_[2];
    SeamStep step_;
    SeamStep step_turned_;
    SeamStep step_corrected_;
    SeamStep step_gained_;
    double compared_;
    double confidence_;
    std::string warning_;
};

// Matches the lenses; nothing when the handler stopped it. Throws CommandError when they cannot be matched. `reply`
// receives the library's.
std::optional<Proposal> propose(const ExportJob& job, const ReplyHandler& handler, Json* reply);

// The same with a bar, until a signal comes.
std::optional<Proposal> propose(const ExportJob& job, Json* reply);
