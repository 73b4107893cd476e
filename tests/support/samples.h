// Camera-like files for tests. Making them takes seconds, so that each kind is made once for a build tree; a test
// gets copies, which it may spoil.
#pragma once

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "support/run_sample.h"
#include "support/temp_dir.h"

namespace test_support {

// The two files of a shot.
struct Shot {
    std::string one;
    std::string two;
};

namespace samples_detail {

// Held while it lives; several test programs run at once.
class FolderLock {
  public:
    explicit FolderLock(const std::string& path) : descriptor_(open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0666)) {
        if (descriptor_ < 0 || flock(descriptor_, LOCK_EX) != 0) {
            throw std::runtime_error("cannot lock " + path);
        }
    }
    ~FolderLock() { close(descriptor_); }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

  private:
    int descriptor_;
};

// Another name for other arguments, and for another version of the tool.
inline std::string name_of(const std::vector<std::string>& arguments) {
    namespace fs = std::filesystem;
    std::string key = std::to_string(fs::last_write_time(sample_tool()).time_since_epoch().count());
    for (const std::string& argument : arguments) {
        key += '\0' + argument;
    }
    return std::to_string(std::hash<std::string>()(key));
}

// The folder with the files "1" and "2" and this extension that the tool makes of these arguments.
inline std::filesystem::path made(const std::string& command, const std::string& extension,
                                  const std::vector<std::string>& arguments) {
    namespace fs = std::filesystem;
    const fs::path store = fs::path(sample_tool()).parent_path() / "made";
    fs::create_directories(store);
    std::vector<std::string> all = arguments;
    all.insert(all.begin(), command);
    const fs::path folder = store / (name_of(all) + extension);
    const FolderLock lock(folder.string() + ".lock");
    if (!fs::exists(folder)) {
        const fs::path unfinished = folder.string() + ".unfinished";
        fs::create_directories(unfinished);
        all.insert(all.begin() + 1,
                   {(unfinished / ("1" + extension)).string(), (unfinished / ("2" + extension)).string()});
        run_sample(all);
        fs::rename(unfinished, folder);
    }
    return folder;
}

}  // namespace samples_detail

// The lens pictures that `nq360-sample still` makes of these arguments, as "lens1.jpg" and "lens2.jpg".
inline Shot stills_in(const TempDir& dir, const std::vector<std::string>& arguments) {
    namespace fs = std::filesystem;
    const fs::path folder = samples_detail::made("still", ".jpg", arguments);
    const Shot shot = {dir.file("lens1.jpg"), dir.file("lens2.jpg")};
    fs::copy_file(folder / "1.jpg", shot.one, fs::copy_options::overwrite_existing);
    fs::copy_file(folder / "2.jpg", shot.two, fs::copy_options::overwrite_existing);
    return shot;
}

// The movies that `nq360-sample movie` makes of these arguments, as "lens1.mov" and "lens2.mov" (or ".mp4").
inline Shot movies_in(const TempDir& dir, const std::vector<std::string>& arguments,
                      const std::string& extension = ".mov") {
    namespace fs = std::filesystem;
    const fs::path folder = samples_detail::made("movie", extension, arguments);
    const Shot shot = {dir.file("lens1" + extension), dir.file("lens2" + extension)};
    fs::copy_file(folder / ("1" + extension), shot.one, fs::copy_options::overwrite_existing);
    fs::copy_file(folder / ("2" + extension), shot.two, fs::copy_options::overwrite_existing);
    return shot;
}

}  // namespace test_support
