// What the long jobs, export and sound, have in common: what they read and write, Ctrl-C and the progress.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>

#include "jobs/library.h"
#include "jobs/replies.h"

// Throws CommandError when something else than a file stands at the path: a folder, or what never ends. `what` is what
// is wanted ("the picture or movie of lens 1").
void check_input(const std::string& path, const std::string& what);

// The file to write: the path itself, or in a folder one called after the input, "NAME" + `ending`.
std::string output_file(const std::string& path, const std::string& input, const std::string& ending);

// Throws CommandError when the path has no folder, an input stands there, something that is no file, or another file
// whose replacement `force` does not allow.
void check_output(const std::string& path, bool force, std::initializer_list<std::string> inputs);

// The file that the library writes to until the output is whole; empty when there is none.
std::string file_beside(const std::string& output);

// How a job shows itself.
struct JobWords {
    Operation operation;
    std::string unit;       // what is counted: "frames"
    std::string waits_for;  // what Ctrl-C waits for: "this frame is made"
    bool as_lines = false;  // each reply is printed as a line of JSON instead
};

// Runs the library's function; what it throws of its own goes through. `seconds` receives how long it took.
using JobFunction = std::function<Outcome(const ReplyHandler& handler)>;
Outcome run_job(const std::string& output, const JobWords& words, const JobFunction& function, double* seconds);
