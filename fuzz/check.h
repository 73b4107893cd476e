// What every fuzz target needs.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "support/temp_dir.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

// Ends the run as a finding: `what` did not hold.
inline void require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "fuzz: does not hold: %s\n", what);
        std::abort();
    }
}

inline test_support::Bytes bytes_of(const uint8_t* data, size_t size) {
    return test_support::Bytes(data, data + size);
}

// The file's content, read and written whole in as few calls as there can be: it is done in every run.
inline test_support::Bytes content_of(const std::string& path) {
    test_support::Bytes bytes(std::filesystem::file_size(path));
    const int file = ::open(path.c_str(), O_RDONLY);
    const ssize_t count = ::read(file, bytes.data(), bytes.size());
    ::close(file);
    require(count == static_cast<ssize_t>(bytes.size()), "the file can be read");
    return bytes;
}

inline void write_input(const std::string& path, const uint8_t* data, size_t size) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const ssize_t count = ::write(file, data, size);
    ::close(file);
    require(count == static_cast<ssize_t>(size), "the input can be written");
}

// A path in a folder of the program's own.
inline std::string path_of(const std::string& name) {
    static const test_support::TempDir dir;
    return dir.file(name);
}

}  // namespace fuzz
