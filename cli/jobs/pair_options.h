// The arguments that export, its preview and match share.
#pragma once

#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "jobs/library.h"

// Two lens files, how their pictures are turned, and where to begin in them.
struct PairOptions {
    std::string lens[2];
    float turns[2] = {0, 0};  // degrees
    std::optional<double> starts[2];

    // Seconds; lens 2 begins where lens 1 does unless told otherwise.
    double start(int which) const { return starts[which].value_or(starts[0].value_or(0)); }
};

void add_lenses(CLI::App& app, PairOptions& options);
void add_turns(CLI::App& app, PairOptions& options);
void add_starts(CLI::App& app, PairOptions& options);
