#include "seam/doubts.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "base/files.h"
#include "media/libavif.h"
#include "metadata/capture_time.h"
#include "metadata/keep.h"
#include "metadata/shot_exif.h"

namespace {

// Both lenses stamp their files as they finish them.
constexpr int64_t kMostSecondsApart = 2;

std::optional<CaptureTime> time_of(const char* path) {
    return capture_time(read_kept_metadata(path).exif);
}

std::string doubt_about_times(const char* path1, const char* path2) {
    const std::optional<CaptureTime> time1 = time_of(path1);
    const std::optional<CaptureTime> time2 = time_of(path2);
    if (!time1 || !time2 || std::abs(unix_seconds(*time1) - unix_seconds(*time2)) <= kMostSecondsApart) {
        return "";
    }
    return "the halves were taken at two times, " + exif_text(*time1) + " and " + exif_text(*time2);
}

bool has_sound(const char* path) {
    libavIF media(path);
    return media.open_input_file(0) == 0 && media.hasAudio(0);
}

// Whether the names differ in one place, where lens 1's has a 2 and lens 2's a 1.
bool are_numbered_the_other_way(const std::string& path1, const std::string& path2) {
    if (path1.size() != path2.size()) {
        return false;
    }
    const auto [one, two] = std::mismatch(path1.begin(), path1.end(), path2.begin());
    return one != path1.end() && *one == '2' && *two == '1' && std::equal(one + 1, path1.end(), two + 1);
}

// The camera is alike from both sides: swapped lenses meet as well as others, the panorama looks the other way, and no
// picture tells.
std::string doubt_about_order(const char* path1, const char* path2) {
    if (!has_sound(path1) && has_sound(path2)) {
        return "the lenses may be swapped: the camera records the sound with lens 1";
    }
    if (are_numbered_the_other_way(path1, path2)) {
        return "the lenses may be swapped: lens 1 has the name with 2, lens 2 that with 1";
    }
    return "";
}

}  // namespace

std::string doubts_about(const char* path1, const char* path2) {
    try {
        if (isSameFile(path1, path2)) {
            return "both halves are the same file";
        }
        const std::string times = doubt_about_times(path1, path2);
        return times.empty() ? doubt_about_order(path1, path2) : times;
    } catch (const char*) {
        return "";  // the file has gone since it was decoded
    }
}
