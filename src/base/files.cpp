#include "base/files.h"

#include <cstdio>
#include <cstring>
#include <string>

#include <libgen.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

// Room that must be left on the output's volume beyond a copy of both inputs: strictly more than 50 MiB.
constexpr int64_t kRequiredHeadroom = 52428801;

bool stat_of(const char* path, struct stat* status) {
    return path && stat(path, status) == 0;
}

// The last part of a path.
std::string name_of(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// Whether two files that are not there yet would be one: the same name in the same directory.
bool is_same_place(const char* path1, const char* path2) {
    const std::string directory1 = nq360_dirname(path1);
    const std::string directory2 = nq360_dirname(path2);
    return name_of(path1) == name_of(path2) && fileExists(directory1.c_str()) &&
           isSameFile(directory1.c_str(), directory2.c_str());
}

}  // namespace

bool isCancelled(const char* marker_path) {
    return fileExists(marker_path);
}

bool fileExists(const char* path) {
    struct stat status;
    return stat_of(path, &status);
}

bool isRegularFile(const char* path) {
    struct stat status;
    return stat_of(path, &status) && S_ISREG(status.st_mode);
}

bool isSameFile(const char* path1, const char* path2) {
    struct stat status1;
    struct stat status2;
    const bool there1 = stat_of(path1, &status1);
    const bool there2 = stat_of(path2, &status2);
    if (there1 && there2) {
        return status1.st_dev == status2.st_dev && status1.st_ino == status2.st_ino;
    }
    return path1 && path2 && !there1 && !there2 && is_same_place(path1, path2);
}

bool isWritable(const char* path) {
    return access(fileExists(path) ? path : nq360_dirname(path), W_OK) == 0;
}

int remove_file(const char* path) {
    struct stat status;
    if (!path || lstat(path, &status) != 0 || !(S_ISREG(status.st_mode) || S_ISLNK(status.st_mode))) {
        return -1;
    }
    return remove(path);
}

char* nq360_dirname(const char* path) {
    // The platform's dirname may cut its argument or answer with static storage; both end up in this copy.
    thread_local std::string directory;
    std::string copy = path ? path : "";
    directory = dirname(copy.data());
    return directory.data();
}

uint64_t nq360_filesize(const char* path, bool* is_dir) {
    struct stat status;
    if (!stat_of(path, &status)) {
        return UINT64_MAX;
    }
    if (is_dir) {
        *is_dir = S_ISDIR(status.st_mode);
    }
    return static_cast<uint64_t>(status.st_size);
}

uint64_t nq360_freesize(const char* path) {
    bool is_dir = false;
    const bool ask_itself = nq360_filesize(path, &is_dir) != UINT64_MAX && is_dir;
    struct statvfs volume = {};
    if (statvfs(ask_itself ? path : nq360_dirname(path), &volume) != 0) {
        return 0;
    }
    // Held to what check_freesize can subtract from: a file system without a limit must not look full.
    uint64_t bytes = 0;
    if (__builtin_mul_overflow(volume.f_bavail, volume.f_frsize, &bytes) || bytes > INT64_MAX) {
        return INT64_MAX;
    }
    return bytes;
}

bool has_room(const char* output_path, uint64_t bytes) {
    const uint64_t room = nq360_freesize(output_path);
    return room >= bytes && room - bytes >= static_cast<uint64_t>(kRequiredHeadroom);
}

int check_freesize(const char* input1, const char* input2, const char* output_path) {
    // Unsigned, so that an input that vanished (all ones) adds one byte of room; deliberate.
    const uint64_t size1 = input1 ? nq360_filesize(input1, nullptr) : 0;
    const uint64_t size2 = input2 ? nq360_filesize(input2, nullptr) : 0;
    const uint64_t room = nq360_freesize(output_path) - (size1 + size2);
    return static_cast<int64_t>(room) < kRequiredHeadroom ? -1 : 0;
}
