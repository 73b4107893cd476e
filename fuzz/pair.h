// Two lens files in one input:
//
//   byte 0    bit 0: the first is a movie; bit 1: the second is
//   byte 1    what is done with them
//   byte 2-5  the first file's length, big-endian
//   then      the first file, and the second one
#pragma once

#include <algorithm>
#include <string>

#include "check.h"

namespace fuzz {

constexpr size_t kPairHead = 6;

struct Pair {
    uint8_t kinds;
    uint8_t options;
    test_support::Bytes files[2];

    bool is_movie(int input) const { return (kinds >> input & 1) != 0; }
    bool asks_for(int bit) const { return (options >> bit & 1) != 0; }
};

// Of kPairHead bytes or more.
inline Pair pair_of(const uint8_t* data, size_t size) {
    const test_support::Bytes input = bytes_of(data, size);
    const size_t rest = size - kPairHead;
    const size_t first = kPairHead + std::min<size_t>(rest, test_support::read_big_endian(input, 2, 4));
    return {data[0], data[1], {test_support::slice(input, kPairHead, first), test_support::slice(input, first, size)}};
}

// The path at which one of them now stands.
inline std::string written(const Pair& pair, int input) {
    const std::string path =
        path_of(std::string("lens") + (input == 0 ? "1" : "2") + (pair.is_movie(input) ? ".mov" : ".jpg"));
    write_input(path, pair.files[input].data(), pair.files[input].size());
    return path;
}

inline void require_as_written(const Pair& pair, const std::string (&paths)[2]) {
    for (int input = 0; input < 2; ++input) {
        require(content_of(paths[input]) == pair.files[input], "the inputs are as they were");
    }
}

}  // namespace fuzz
