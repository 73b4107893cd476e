// Other programs that the command runs.
#pragma once

#include <optional>
#include <string>
#include <vector>

// Runs a program, found as a shell finds it, with its arguments as they are; no shell has a part in it. What it has to
// say to people goes where the command's own messages go. Returns what it printed. Throws CommandError when it is not
// there or fails.
std::string run_program(const std::vector<std::string>& arguments);

// The same without a word of it; nothing when it is not there or fails.
std::optional<std::string> ask_program(const std::vector<std::string>& arguments);
