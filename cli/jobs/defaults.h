// What the command does unless it is told otherwise. The library's own defaults are those of its plain function, and
// --exact keeps to them.
#pragma once

#include "nq360.h"

constexpr int kQuality = 95;
constexpr double kFeather = 1.5;  // degrees

inline void set_usual(NQ360_EXPORT_OPTIONS* options) {
    options->quality = kQuality;
    options->feather = kFeather;
    options->keep_metadata = 1;
    options->whole_inputs_only = 1;
    options->filter = 1;
    options->workers = -1;
}
