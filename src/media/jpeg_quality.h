// How good a JPEG is to be.
#pragma once

#include <algorithm>
#include <cmath>

// The quantiser of Motion JPEG for a quality of 1 to 100: 1 is the finest, 2 (quality 95) near a good camera's.
inline int jpeg_quantiser(int quality) {
    return std::clamp(static_cast<int>(std::lround(1 + (100 - quality) / 5.0)), 1, 31);
}
