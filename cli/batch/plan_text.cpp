#include "batch/plan_text.h"

#include <filesystem>

#include "batch/path_json.h"
#include "jobs/size_text.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

const char* state_word(OutputState state) {
    switch (state) {
        case OutputState::kMissing:
            return "to make";
        case OutputState::kDone:
        case OutputState::kPlaced:
            return "done";
        case OutputState::kOutdated:
            return "changed";
        default:
            return "in the way";
    }
}

std::string row(const std::string& size, const std::string& frames, const std::string& space, const std::string& state,
                const std::string& output, const std::string& halves) {
    return padded(size, 10) + padded(frames, 6) + padded(space, 10) + padded(state, 10) + padded(output, 24) + halves +
           "\n";
}

// Both lie in one folder.
std::string halves_of(const PlannedShot& shot) {
    return printable(shot.lens[0]) + " + " + printable(fs::path(shot.lens[1]).filename().string());
}

}  // namespace

std::string plan_table(const Plan& plan, const std::vector<OutputState>& states) {
    std::string text = plan.shots.empty() ? "" : row("SIZE", "FRAMES", "SPACE", "STATE", "PANORAMA", "HALVES");
    for (size_t i = 0; i < states.size(); ++i) {
        const PlannedShot& shot = plan.shots[i];
        text += row(std::to_string(shot.width) + "x" + std::to_string(shot.height),
                    shot.is_picture ? "-" : std::to_string(shot.frames), bytes_text(shot.bytes), state_word(states[i]),
                    printable(shot.output), halves_of(shot));
    }
    for (const LeftOut& file : plan.left_out) {
        text += "left out: " + file.why + "\n";
    }
    return text;
}

std::string plan_lines(const Plan& plan, const std::vector<OutputState>& states) {
    std::string text;
    for (size_t i = 0; i < states.size(); ++i) {
        Json json = shot_json(plan.shots[i]);
        json["state"] = state_word(states[i]);
        text += json_line(json);
    }
    for (const LeftOut& file : plan.left_out) {
        text += json_line({{"left_out", path_json(file.path)}, {"why", file.why}, {"damaged", file.is_damaged}});
    }
    return text;
}
