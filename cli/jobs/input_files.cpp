#include "jobs/input_files.h"

#include <algorithm>
#include <cctype>

#include "jobs/errors.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kMostName = 200;  // bytes; leaves room for a number and the extension in any file system

// Names that begin with a dot are other programs' notes beside the pictures.
bool is_hidden(const fs::path& path) {
    return path.filename().string()[0] == '.';
}

// Links to folders are not followed: they could lead in circles.
std::vector<std::string> files_of(const std::string& folder, bool recursive) {
    std::vector<std::string> files;
    std::error_code error;
    for (fs::recursive_directory_iterator entry(folder, error); !error && entry != fs::recursive_directory_iterator();
         entry.increment(error)) {
        std::error_code unknown;
        if (entry->is_directory(unknown)) {
            if (!recursive || is_hidden(entry->path())) {
                entry.disable_recursion_pending();
            }
        } else if (!is_hidden(entry->path()) && is_picture_or_movie(entry->path())) {
            files.push_back(entry->path().string());
        }
    }
    if (error) {
        throw CommandError(printable(folder) + ": the folder cannot be read (" + error.message() + ")");
    }
    if (files.empty()) {
        throw CommandError(printable(folder) + ": no picture (.jpg, .jpeg) or movie (.mov, .mp4) in this folder" +
                           (recursive ? "" : "; -r looks into its folders too"));
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Whether nothing but an earlier thumbnail can be lost: what has another name besides could be anybody's picture.
bool is_replaceable(const fs::path& path) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(path, error);
    return !fs::exists(status) || (fs::is_regular_file(status) && fs::hard_link_count(path, error) == 1);
}

}  // namespace

std::string extension_of(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool is_picture_or_movie(const fs::path& path) {
    const std::string extension = extension_of(path);
    return extension == ".jpg" || extension == ".jpeg" || extension == ".mov" || extension == ".mp4";
}

std::vector<std::string> input_files(const std::vector<std::string>& arguments, bool recursive) {
    std::vector<std::string> files;
    for (const std::string& argument : arguments) {
        std::error_code unknown;
        if (fs::is_directory(argument, unknown)) {
            const std::vector<std::string> found = files_of(argument, recursive);
            files.insert(files.end(), found.begin(), found.end());
        } else {
            files.push_back(argument);
        }
    }
    return files;
}

ThumbnailNames::ThumbnailNames(const std::string& folder, const std::vector<std::string>& files) : folder_(folder) {
    std::error_code error;
    fs::create_directory(folder_, error);
    if (!fs::is_directory(folder_, error)) {
        throw CommandError(printable(folder) + ": the folder for the thumbnails cannot be made");
    }
    fs::path last;
    for (const std::string& file : files) {
        const fs::path parent = fs::path(file).has_parent_path() ? fs::path(file).parent_path() : fs::path(".");
        if (parent != last && fs::equivalent(parent, folder_, error)) {
            throw UsageError(printable(folder) + ": holds pictures itself; choose another folder for the thumbnails");
        }
        last = parent;
    }
}

std::string ThumbnailNames::path_for(const std::string& file) {
    const std::string name = fs::path(file).filename().string().substr(0, kMostName);
    std::string chosen = name + ".jpg";
    for (int number = 2; !is_replaceable(folder_ / chosen) || !given_.insert(chosen).second; ++number) {
        chosen = name + "." + std::to_string(number) + ".jpg";
    }
    return (folder_ / chosen).string();
}
