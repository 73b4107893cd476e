// The length of a frame.
#pragma once

#include <cstdint>

// The time from frame to frame in ticks of a movie's time base, as the camera records it: 30000/1001 frames a second at
// 1/30000. It is taken for every other movie too, deliberately; times and ranges fit each other by it.
constexpr int64_t kFrameTicks = 1001;
