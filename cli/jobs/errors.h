// How a command ends other than well. What the texts say is shown after "nq360: ".
#pragma once

#include <stdexcept>

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kWrongUse = 2;
constexpr int kCancelled = 130;

struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The arguments do not make sense together.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Whoever read the standard output stream has gone.
struct ClosedPipe {};
