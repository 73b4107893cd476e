// The log lines.
#pragma once

// Writes the message and a newline to the standard error stream, or hands the message to the job's own sink
// (base/log_sink.h); level 1 is information, 3 an error.
// Returns the result of writing the newline.
int nq360_log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// --- Kept for its users; the library itself never calls it ---

// Does nothing, deliberately: every message is printed whatever its level.
void nq360_set_log_level(int level);
