// The only two places that files are read from and written to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "terminal/descriptor.h"

// A file as it is at the moment: another one at the same path is known by its size or time.
struct FileVersion {
    std::string path;  // the real one, without links
    int64_t size = 0;
    int64_t time = 0;  // of its last change, ns

    bool operator==(const FileVersion& other) const {
        return path == other.path && size == other.size && time == other.time;
    }
    bool operator!=(const FileVersion& other) const { return !(*this == other); }
};

struct SharedFile {
    Descriptor descriptor;
    FileVersion state;
};

class SharedFolders {
  public:
    // `made` is where exports go. Throws CommandError when one is no folder.
    SharedFolders(const std::string& folder, const std::string& made);

    const std::string& folder() const { return roots_.front(); }
    const std::string& made() const { return roots_.back(); }

    // Names of pictures, movies and strips of both folders, sorted; none twice. `error` receives why one cannot be
    // read.
    std::vector<std::string> names(std::string* error) const;

    // The file of this name, first out of the folder; nothing unless it is a picture, movie or sound, which lies in one
    // of the two when it is open. A name is never a path.
    std::optional<SharedFile> open(const std::string& name) const;

    // Whether nothing stands at this name in either.
    bool is_free(const std::string& name) const;

    // A path of its own in the folder of exports, where a file of this name is made.
    std::string work_file(const std::string& name) const;

    // Gives a made file its name there; false when something stands at the name in either, which stays. Throws
    // CommandError when it cannot be done.
    bool place(const std::string& file, const std::string& name) const;

  private:
    std::vector<std::string> roots_;
};

// As a browser is to be told, by the name's extension; empty for what is never sent. What QuickTime files hold is what
// MPEG-4 files hold, and browsers play it under that name alone.
std::string media_type(const std::string& name);
