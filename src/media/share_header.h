// Which share of a movie a file is, and what it has to have in common with the others.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// Of one movie; far more than there are machines.
constexpr int32_t kMostShares = 100000;

using NamedTexts = std::vector<std::pair<std::string, std::string>>;

struct ShareHeader {
    int number = 0;     // 1 to count
    int count = 0;      // of the movie's shares; 0: it is made in one piece
    NamedTexts common;  // what all shares of a movie have alike: options, inputs, streams, metadata

    void add(const std::string& name, const std::string& value) { common.emplace_back(name, value); }
    void add(const std::string& name, int64_t value) { add(name, std::to_string(value)); }

    // The value of this name; empty, and 0, when there is none.
    std::string text(const std::string& name) const;
    int64_t integer(const std::string& name) const;
};
