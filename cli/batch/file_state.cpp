#include "batch/file_state.h"

#include <sys/stat.h>

std::optional<FileState> state_of_file(const std::string& path) {
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        return {};
    }
    constexpr int64_t kNanoseconds = 1000000000;
    return FileState{static_cast<uint64_t>(status.st_size),
                     static_cast<int64_t>(status.st_mtim.tv_sec) * kNanoseconds + status.st_mtim.tv_nsec,
                     S_ISREG(status.st_mode)};
}

Json file_state_json(const FileState& state) {
    return {{"bytes", state.bytes}, {"modified", state.modified}};
}

FileState file_state_of(const Json& json) {
    return {json.at("bytes").get<uint64_t>(), json.at("modified").get<int64_t>(), true};
}
