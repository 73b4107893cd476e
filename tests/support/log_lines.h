// What may stand on the standard error stream when a file is in order: the library's own lines.
#pragma once

#include <algorithm>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace test_support {

// Codecs and OpenCV begin their lines with brackets too.
inline bool is_own_line(const std::string& line) {
    static const char* const kBeginnings[] = {
        "[NQ360_",    "[_NQ360_", "[NQT360_", "[_NQT360_", "[exif]", "[.jpeg analyze]", "[.mov .mp4 analyze]",
        "[libavIF::", "frame "};
    return std::any_of(std::begin(kBeginnings), std::end(kBeginnings),
                       [&](const char* beginning) { return line.rfind(beginning, 0) == 0; });
}

inline void expect_own_lines_only(const std::string& log) {
    std::istringstream stream(log);
    for (std::string line; std::getline(stream, line);) {
        EXPECT_TRUE(is_own_line(line)) << line;
    }
}

}  // namespace test_support
