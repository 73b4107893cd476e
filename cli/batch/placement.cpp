#include "batch/placement.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include "jobs/errors.h"
#include "terminal/console.h"
#include "terminal/descriptor.h"

namespace fs = std::filesystem;

namespace {

// 0, or the error.
int sync(const fs::path& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file && fsync(file.get()) == 0 ? 0 : errno;
}

[[noreturn]] void fail(const Placement& placement, const std::string& what, const std::string& why) {
    throw CommandError(printable(placement.path) + ": " + what + " (" + why + ")");
}

}  // namespace

void write_to_disk(const Placement& placement) {
    if (const int error = sync(placement.file); error != 0) {
        fail(placement, "cannot be written to the disk", std::strerror(error));
    }
}

void put_in_place(const Placement& placement, const std::function<void(const Json& event)>& log) {
    const fs::path folder = fs::path(placement.path).parent_path();
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        fail(placement, "its folder cannot be made", error.message());
    }
    const bool is_foreign = output_state(placement.record, placement.key, placement.path) == OutputState::kForeign;
    if (is_foreign && !placement.force) {
        throw CommandError(in_the_way(placement.path));
    }
    const auto state = state_of_file(placement.file);
    if (!state) {
        fail(placement, "cannot be put in its place", "its file is gone");
    }
    log(whole_event(placement.output, placement.key, *state));
    fs::rename(placement.file, placement.path, error);
    if (error) {
        fail(placement, "cannot be put in its place", error.message());
    }
    sync(folder);  // not all file systems can; a panorama that a loss of power takes away is made again
    log(done_event(placement.output, placement.key, *state));
}

std::string in_the_way(const std::string& path) {
    return printable(path) + ": exists already and is not of this batch; --force replaces it";
}
