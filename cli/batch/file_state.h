// By what a file is known again without reading it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "jobs/replies.h"

struct FileState {
    uint64_t bytes = 0;
    int64_t modified = 0;  // nanoseconds since 1970
    bool is_regular = false;

    bool operator==(const FileState& other) const { return bytes == other.bytes && modified == other.modified; }
};

// Nothing where none stands. Links are followed.
std::optional<FileState> state_of_file(const std::string& path);

Json file_state_json(const FileState& state);
FileState file_state_of(const Json& json);
