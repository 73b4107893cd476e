// What an exception says, for the "an unknown error occurred" replies.
#pragma once

#include <string>

// To be called while an exception is being handled. Control characters, which other libraries' texts may end
// in and JSON does not allow, become blanks.
std::string thrown_text();

// The text with blanks for control characters, which JSON does not take.
std::string on_one_line(std::string text);
