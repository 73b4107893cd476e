// What of a plan is made already.
#pragma once

#include <string>
#include <vector>

#include "batch/journal.h"
#include "batch/plan.h"

// How each shot's output stands; `making` is what shapes the panoramas.
std::vector<OutputState> assess(const Plan& plan, const Json& making, const std::string& to, const Records& records);

// Whether it is to be made; what is not a batch's stays where it is unless it may be replaced.
bool is_to_be_made(OutputState state, bool force);

// Those that are to be made.
std::vector<const PlannedShot*> shots_to_make(const Plan& plan, const std::vector<OutputState>& states, bool force);

// Whether the panoramas fit on the volume of the folder, which need not be there yet: a text that says they do not, or
// nothing.
std::string lack_of_space(const std::vector<const PlannedShot*>& shots, const std::string& to);

unsigned long long free_space(const std::string& to);
