// Which files an analysis or a page is about, and where their thumbnails go.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

// Of the name, in lower case and with its dot.
std::string extension_of(const std::filesystem::path& path);

bool is_picture_or_movie(const std::filesystem::path& path);

// The arguments, each folder replaced by the pictures and movies in it, sorted by name; if `recursive`, by those in its
// own folders too. Throws CommandError for a folder that cannot be read or holds none.
std::vector<std::string> input_files(const std::vector<std::string>& arguments, bool recursive);

// Names for thumbnails, each handed out once: "IMG_1.JPG.jpg" for IMG_1.JPG and, for another IMG_1.JPG out of
// another folder, "IMG_1.JPG.2.jpg".
class ThumbnailNames {
  public:
    // Makes the folder when it is not there. Throws UsageError when one of the files lies in it: a thumbnail
    // could replace a picture there.
    ThumbnailNames(const std::string& folder, const std::vector<std::string>& files);

    std::string path_for(const std::string& file);

  private:
    std::filesystem::path folder_;
    std::set<std::string> given_;
};
