#include "jobs/whole_file.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "jobs/errors.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

std::string path_beside(const std::string& folder, const std::string& extension) {
    static std::atomic<int> number = 0;
    return fs::path(folder) / (".nq360-" + std::to_string(getpid()) + "." + std::to_string(++number) + extension);
}

void write_whole(const std::string& path, const std::string& bytes) {
    std::error_code error;
    const fs::path followed = fs::weakly_canonical(path, error);  // a link stays one
    const fs::path target = error ? fs::path(path) : followed;
    const std::string beside = path_beside(target.parent_path(), "");
    std::ofstream file(beside, std::ios::binary | std::ios::trunc);
    if (!file) {
        throw CommandError(printable(path) + ": cannot be written (" + std::strerror(errno) + ")");
    }
    file << bytes;
    file.close();
    if (file) {
        fs::rename(beside, target, error);
    }
    if (!file || error) {
        std::error_code ignored;
        fs::remove(beside, ignored);
        throw CommandError(printable(path) + ": cannot be written whole; is the volume full?");
    }
}
