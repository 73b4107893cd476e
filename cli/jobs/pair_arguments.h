// The arguments that export, its preview and match share.
#pragma once

#include <optional>
#include <string>

#include "jobs/library.h"

namespace CLI {
class App;
}

// Two lens files, how their pictures are turned, and which part of them is meant; index 0 is lens 1.
struct PairArguments {
    std::string lens[2];
    double turns[2] = {0, 0};         // degrees
    std::optional<double> starts[2];  // seconds
    std::optional<double> ends[2];

    // Lens 2 begins where lens 1 does unless told otherwise, and goes on as long.
    double start(int which) const { return starts[which].value_or(starts[0].value_or(0)); }
    std::optional<double> end(int which) const;
};

void add_lenses(CLI::App& app, PairArguments& pair);
void add_turns(CLI::App& app, PairArguments& pair);
void add_range(CLI::App& app, PairArguments& pair);

// Throws CommandError when one is no file.
void check_lenses(const PairArguments& pair);

// Throws UsageError when an end does not lie behind its start.
void check_range(const PairArguments& pair);

void fill(const PairArguments& pair, ExportJob* job);
