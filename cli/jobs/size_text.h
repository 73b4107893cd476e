// Numbers of bytes as people read them.
#pragma once

#include <cstdio>
#include <string>

// "512 bytes", "31.8 GiB".
inline std::string bytes_text(unsigned long long bytes) {
    static const char* const kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1024 && unit + 1 < std::size(kUnits)) {
        value /= 1024;
        ++unit;
    }
    char text[64];
    std::snprintf(text, sizeof(text), unit == 0 ? "%.0f %s" : "%.1f %s", value, kUnits[unit]);
    return text;
}
