#include "batch/assessment.h"

#include <filesystem>

#include "batch/shot_maker.h"
#include "jobs/errors.h"
#include "jobs/size_text.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

// Null where an input is gone: its export will tell which one.
Json key_if_there(const PlannedShot& shot, const Json& making) {
    try {
        return key_of(shot, making);
    } catch (const CommandError&) {
        return nullptr;
    }
}

}  // namespace

std::vector<OutputState> assess(const Plan& plan, const Json& making, const std::string& to, const Records& records) {
    std::vector<OutputState> states;
    for (const PlannedShot& shot : plan.shots) {
        states.push_back(output_state(record_of(records, shot.output), key_if_there(shot, making),
                                      (fs::path(to) / shot.output).string()));
    }
    return states;
}

bool is_to_be_made(OutputState state, bool force) {
    return state == OutputState::kMissing || state == OutputState::kOutdated ||
           (state == OutputState::kForeign && force);
}

std::vector<const PlannedShot*> shots_to_make(const Plan& plan, const std::vector<OutputState>& states, bool force) {
    std::vector<const PlannedShot*> shots;
    for (size_t i = 0; i < states.size(); ++i) {
        if (is_to_be_made(states[i], force)) {
            shots.push_back(&plan.shots[i]);
        }
    }
    return shots;
}

std::string lack_of_space(const std::vector<const PlannedShot*>& shots, const std::string& to) {
    const uint64_t needed = space_needed(shots);
    const unsigned long long free = free_space(to);
    if (needed <= free) {
        return "";
    }
    return printable(to) + ": not enough room for " + std::to_string(shots.size()) +
           " panoramas: " + bytes_text(needed) + " are needed on its volume, " + bytes_text(free) + " are free";
}

unsigned long long free_space(const std::string& to) {
    std::error_code unknown;
    fs::path there = fs::absolute(to);
    while (!fs::is_directory(there, unknown) && there.has_relative_path()) {
        there = there.parent_path();
    }
    return NQ360_freesize(there.c_str());
}
