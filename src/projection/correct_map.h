// Per-lens correction: one 256-entry lookup table a plane.
#pragma once

#include <array>
#include <cstdint>

#include "nq360.h"

// 771 bytes; a table counts only when its flag is 1.
struct YuvCorrectMap {
    uint8_t ytable[256];
    uint8_t yenabled;
    uint8_t utable[256];
    uint8_t uenabled;
    uint8_t vtable[256];
    uint8_t venabled;
};
static_assert(sizeof(YuvCorrectMap) == 771, "the tables and flags follow each other without gaps");

// Tables that add an offset and hold the sum to 0..255. CORRECT_NONE leaves a plane's table and flag zero;
// an offset of 0 gives the identity with the flag set.
YuvCorrectMap create_linnercorrectmap(int y, int u, int v);

// The same with factors before the offsets: on Y about black, which is 0 in full range and 16 in limited, on U and V
// about 128; the sum is rounded to nearest. A factor of 1 leaves a plane's table and flag as they are. `offsets`: made
// by create_linnercorrectmap, whose offsets beyond 255 count as 255.
YuvCorrectMap with_gains(const YuvCorrectMap& offsets, const std::array<double, 3>& gains, bool full_range);
