#include "projection/correct_map.h"

#include <algorithm>
#include <cmath>

namespace {

// Fills one plane's table; `enabled` stays zero for a plane that is to be left alone.
void set_offset_table(uint8_t* table, uint8_t* enabled, int offset) {
    if (offset == CORRECT_NONE) {
        return;
    }
    *enabled = 1;
    for (int64_t value = 0; value < 256; ++value) {
        // 64 bits: an offset near the ends of int must not overflow.
        table[value] = static_cast<uint8_t>(std::clamp<int64_t>(value + offset, 0, 255));
    }
}

}  // namespace

YuvCorrectMap create_linnercorrectmap(int y, int u, int v) {
    YuvCorrectMap map = {};
    set_offset_table(map.ytable, &map.yenabled, y);
    set_offset_table(map.utable, &map.uenabled, u);
    set_offset_table(map.vtable, &map.venabled, v);
    return map;
}

namespace {

// What a plane's table adds: what becomes of black tells it, or of white where black stays below.
int offset_of(const uint8_t* table, uint8_t enabled) {
    if (!enabled) {
        return 0;
    }
    return table[0] > 0 ? table[0] : table[255] - 255;
}

void set_gain_table(uint8_t* table, uint8_t* enabled, double gain, int middle) {
    if (gain == 1) {
        return;
    }
    const double constant = middle + offset_of(table, *enabled);
    *enabled = 1;
    for (int value = 0; value < 256; ++value) {
        table[value] = static_cast<uint8_t>(std::lround(std::clamp(constant + gain * (value - middle), 0.0, 255.0)));
    }
}

}  // namespace

YuvCorrectMap with_gains(const YuvCorrectMap& offsets, const std::array<double, 3>& gains, bool full_range) {
    YuvCorrectMap map = offsets;
    set_gain_table(map.ytable, &map.yenabled, gains[0], full_range ? 0 : 16);
    set_gain_table(map.utable, &map.uenabled, gains[1], 128);
    set_gain_table(map.vtable, &map.venabled, gains[2], 128);
    return map;
}
