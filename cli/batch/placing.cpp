#include "batch/placing.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include "jobs/errors.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

void sync(const fs::path& path, bool must) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const bool synced = file >= 0 && fsync(file) == 0;
    const int error = errno;
    if (file >= 0) {
        close(file);
    }
    if (!synced && must) {
        throw CommandError(printable(path.string()) + ": cannot be written to the disk (" + std::strerror(error) + ")");
    }
}

}  // namespace

void put_in_place(const Placing& placing, const ShotRecord* record, const std::function<void(const Json& event)>& log) {
    const fs::path output = fs::path(placing.to) / placing.output;
    sync(placing.file, true);
    std::error_code error;
    fs::create_directories(output.parent_path(), error);
    if (error) {
        throw CommandError(printable(output.string()) + ": its folder cannot be made (" + error.message() + ")");
    }
    if (output_state(record, placing.key, output.string()) == OutputState::kForeign && !placing.force) {
        throw CommandError(in_the_way(output.string()));
    }
    const FileState state = state_of_file(placing.file).value_or(FileState());
    log(whole_event(placing.output, placing.key, state));
    fs::rename(placing.file, output, error);
    if (error) {
        throw CommandError(printable(output.string()) + ": cannot be put in its place (" + error.message() + ")");
    }
    sync(output.parent_path(), false);
    log(done_event(placing.output, placing.key, state));
}

std::string in_the_way(const std::string& path) {
    return printable(path) + ": exists already and is not of this batch; --force replaces it";
}
