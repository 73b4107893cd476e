#include "batch/work_folder.h"

#include <filesystem>
#include <vector>

#include "batch/journal.h"
#include "jobs/errors.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

WorkFolder::WorkFolder(const std::string& to, const std::string& name)
    : folder_((fs::path(to) / kNotesFolder / name).string()) {
    std::error_code error;
    fs::create_directory(folder_, error);  // one that is there already is a dead process's of the same number
    if (error) {
        throw CommandError(printable(folder_) + ": the folder cannot be made (" + error.message() + ")");
    }
}

WorkFolder::~WorkFolder() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

std::string WorkFolder::file(const std::string& name, const std::string& output) const {
    return (fs::path(folder_) / (name + fs::path(output).extension().string())).string();
}

void remove_work_folders(const std::string& to, const std::string& beginning) {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator entry(fs::path(to) / kNotesFolder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        if (entry->path().filename().string().rfind(beginning, 0) == 0) {
            found.push_back(entry->path());
        }
    }
    for (const fs::path& folder : found) {
        fs::remove_all(folder, error);
    }
}
