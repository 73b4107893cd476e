// What may stand on the standard error stream when a file is in order: the library's own lines.
#pragma once

#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace test_support {

// FFmpeg's lines begin with a bracket too, and go on with an address.
inline void expect_own_lines_only(const std::string& log) {
    std::istringstream stream(log);
    for (std::string line; std::getline(stream, line);) {
        EXPECT_TRUE(!line.empty() && line[0] == '[' && line.find(" @ 0x") == std::string::npos) << line;
    }
}

}  // namespace test_support
