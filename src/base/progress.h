// How often a job tells of its progress.
#pragma once

#include <cstdint>

// Frames between two progress replies of a job of `total` frames.
int nq360_update_frame(int64_t total);
