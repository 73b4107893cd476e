#include "base/output_place.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"

namespace {

// Where the links of a path lead; the path itself where nothing stands yet.
std::string followed(const char* path) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path, nullptr), std::free);
    return real ? real.get() : path;
}

// Names of this process's files beside their outputs, short whatever these are called. The extension stays: it tells
// the kind of file to write.
std::string name_beside(const std::string& target) {
    static std::atomic<unsigned> count{0};
    const size_t name = target.rfind('/') + 1;  // of the whole where there is no '/'
    const size_t dot = target.rfind('.');
    const std::string extension = dot == std::string::npos || dot < name ? "" : target.substr(dot);
    return std::string(nq360_dirname(target.c_str())) + "/.nq360-" + std::to_string(getpid()) + "-" +
           std::to_string(count++) + extension;
}

}  // namespace

OutputPlace::~OutputPlace() {
    if (way_ == kBeside) {
        discard();
    }
}

std::string OutputPlace::prepare() {
    prepared_ = true;
    if (way_ == kInPlace) {
        return "";
    }
    target_ = followed(output_);
    struct stat there = {};
    const bool exists = stat(target_.c_str(), &there) == 0;
    if (exists && !S_ISREG(there.st_mode)) {
        return "not a regular file, which alone can be replaced";
    }
    int file = -1;
    for (int tries = 0; file < 0 && tries < 1000; ++tries) {  // a killed process of the same number may have left one
        beside_ = name_beside(target_);
        file = open(beside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (file < 0 && errno != EEXIST) {
            break;
        }
    }
    if (file < 0) {
        beside_.clear();
        return std::string("nothing can be written beside it: ") + std::strerror(errno);
    }
    if (exists) {
        fchmod(file, there.st_mode & 07777);  // where that is not allowed the new file's own mode has to do
    }
    close(file);
    return "";
}

void OutputPlace::keep() {
    if (way_ == kInPlace) {
        return;
    }
    if (std::rename(beside_.c_str(), target_.c_str()) != 0) {
        throw std::runtime_error(std::string("the output is whole but cannot take its place: ") + std::strerror(errno));
    }
    beside_.clear();
}

void OutputPlace::discard() {
    if (!prepared_) {
        return;
    }
    if (way_ == kInPlace) {
        remove_file(output_);
    } else if (!beside_.empty()) {
        remove_file(beside_.c_str());
        beside_.clear();
    }
}
