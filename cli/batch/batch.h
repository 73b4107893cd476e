// The panoramas of a plan, several at a time, each put in its place when it is whole.
#pragma once

#include <optional>
#include <string>

#include "batch/making.h"
#include "batch/plan.h"

struct BatchSettings {
    std::string to;                // the panoramas' folder, made where it is not there
    std::optional<int> at_a_time;  // one per core, as far as memory goes
    bool force = false;            // replace what is not a batch's
    bool as_lines = false;         // print JSON
};

// Makes what is not made yet. Returns the exit status; throws CommandError when it cannot begin or go on.
int run_batch(const Plan& plan, const Making& making, const BatchSettings& settings);
