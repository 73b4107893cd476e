#include "shared_folders.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "jobs/errors.h"
#include "jobs/input_files.h"
#include "jobs/whole_file.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

const std::map<std::string, std::string> kMediaTypes = {
    {".jpg", "image/jpeg"}, {".jpeg", "image/jpeg"}, {".png", "image/png"}, {".mov", "video/mp4"},
    {".mp4", "video/mp4"},  {".wav", "audio/wav"},   {".m4a", "audio/mp4"}};

// Names that begin with a dot are other programs' notes beside the pictures.
bool may_be_named(const std::string& name) {
    return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos && !media_type(name).empty();
}

std::string real_folder(const std::string& folder) {
    std::error_code error;
    const fs::path real = fs::canonical(folder, error);
    if (error || !fs::is_directory(real, error)) {
        throw CommandError(printable(folder) + ": is no folder that can be read");
    }
    return real.string();
}

// Where an open file lies.
std::string place_of(int descriptor) {
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = readlink(link.c_str(), path, sizeof(path));
    return size > 0 && size < static_cast<ssize_t>(sizeof(path)) ? std::string(path, static_cast<size_t>(size)) : "";
}

// 0, or the error. Not all file systems can rename without replacing, but most of those have links. Where there is
// neither, a moment remains in which another program could put its file there.
int rename_to_free(const std::string& from, const std::string& to) {
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    if (link(from.c_str(), to.c_str()) == 0) {
        unlink(from.c_str());
        return 0;
    }
    struct stat status = {};
    if (errno == EEXIST || lstat(to.c_str(), &status) == 0) {
        return EEXIST;
    }
    return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

bool lies_in(const std::string& path, const std::string& root) {
    const std::string start = root == "/" ? root : root + "/";
    return path.compare(0, start.size(), start) == 0;
}

}  // namespace

SharedFolders::SharedFolders(const std::string& folder, const std::string& made) : roots_{real_folder(folder)} {
    const std::string other = real_folder(made);
    if (other != roots_.front()) {
        roots_.push_back(other);
    }
}

std::vector<std::string> SharedFolders::names(std::string* error) const {
    std::set<std::string> names;
    for (const std::string& root : roots_) {
        std::error_code failed;
        for (fs::directory_iterator entry(root, failed); !failed && entry != fs::directory_iterator();
             entry.increment(failed)) {
            const std::string name = entry->path().filename().string();
            if (may_be_named(name)) {
                names.insert(name);
            }
        }
        if (failed) {
            *error = printable(root) + ": the folder cannot be read (" + failed.message() + ")";
        }
    }
    return {names.begin(), names.end()};
}

std::optional<SharedFile> SharedFolders::open(const std::string& name) const {
    if (!may_be_named(name)) {
        return {};
    }
    for (std::string place : roots_) {
        place.append("/").append(name);
        // Not held up by a pipe.
        Descriptor file(::open(place.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        struct stat status = {};
        if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
            status.st_nlink == 0) {  // removed since
            continue;
        }
        const std::string path = place_of(file.get());
        if (std::any_of(roots_.begin(), roots_.end(), [&path](const std::string& one) { return lies_in(path, one); })) {
            const int64_t time = int64_t{1000000000} * status.st_mtim.tv_sec + status.st_mtim.tv_nsec;
            return SharedFile{std::move(file), {path, status.st_size, time}};
        }
    }
    return {};
}

bool SharedFolders::is_free(const std::string& name) const {
    return std::none_of(roots_.begin(), roots_.end(), [&name](const std::string& root) {
        struct stat status = {};
        return lstat((root + "/" + name).c_str(), &status) == 0;
    });
}

// The extension stays: it tells the kind of file to write.
std::string SharedFolders::work_file(const std::string& name) const {
    return path_beside(made(), extension_of(name));
}

bool SharedFolders::place(const std::string& file, const std::string& name) const {
    const int error = is_free(name) ? rename_to_free(file, made() + "/" + name) : EEXIST;
    if (error != 0 && error != EEXIST) {
        throw CommandError(printable(name) + ": is whole but cannot take its place (" + std::strerror(error) + ")");
    }
    return error == 0;
}

std::string media_type(const std::string& name) {
    const auto found = kMediaTypes.find(extension_of(name));
    return found == kMediaTypes.end() ? "" : found->second;
}
