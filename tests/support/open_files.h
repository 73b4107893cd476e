// How many files this process has open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace test_support {

inline std::ptrdiff_t open_files() {
    namespace fs = std::filesystem;
    return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
}

}  // namespace test_support
