#include "projection/correct_map.h"

#include <algorithm>

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
