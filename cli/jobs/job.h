// What the long jobs, export and sound, have in common: the output that is refused when it exists, the cancel
// marker and the progress.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>

#include "jobs/library.h"

// Throws CommandError when a folder or an input stands at the path, or another file whose replacement `force` does
// not allow.
void check_output(const std::string& path, bool force, std::initializer_list<std::string> inputs);

// Runs the library's function with a marker and progress in `unit`. The outcome's state is NQ360_CANCELLED
// also when the job ended well after Ctrl-C (a picture ends before it looks for the marker): its output is
// removed then. `seconds` receives how long it took.
using JobFunction = std::function<Outcome(const std::string& cancel_path, const FrameHandler& handler)>;
Outcome run_job(const std::string& output, const std::string& unit, const JobFunction& function, double* seconds);
