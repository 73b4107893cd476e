// What a job tells while it runs, and how often.
#pragma once

#include <cstdint>
#include <functional>

#include "nq360.h"

// Told of NQ360_STARTED with the total, or of NQ360_PROGRESS with the count so far, on the thread of the call. Its
// result tells whether the job is to stop. Empty: nobody listens.
using ReportProgress = std::function<bool(NQ360_STATE state, int64_t frames)>;

// Frames between two progress replies of a job of `total` frames.
int nq360_update_frame(int64_t total);
