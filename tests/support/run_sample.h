// Runs nq360-sample for a test and looks at what it made.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "support/command.h"

namespace test_support {

// The tool of the same build tree: test programs lie in tests/, the tool in sample/.
inline std::string sample_tool() {
    const std::filesystem::path tests = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    return (tests.parent_path() / "sample" / "nq360-sample").string();
}

// Runs the tool with these arguments; throws with its message when it fails.
inline void run_sample(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), sample_tool());
    output_of(arguments);
}

// The Y plane of a picture, or of frame `index` of a movie, as it is stored: neither turned nor brought to another
// range. CV_8UC1.
inline cv::Mat luma_of(const std::string& path, int index = 0) {
    const std::string size = output_of({"ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                                        "stream=width,height", "-of", "csv=p=0:nk=1", "file:" + path});
    int width = 0;
    int height = 0;
    if (std::sscanf(size.c_str(), "%d,%d", &width, &height) != 2) {
        throw std::runtime_error(path + " has no picture");
    }
    const std::string filter = "select=eq(n\\," + std::to_string(index) + "),extractplanes=y";
    const std::string bytes = output_of({"ffmpeg", "-v", "error", "-noautorotate", "-i", "file:" + path, "-vf", filter,
                                         "-frames:v", "1", "-f", "rawvideo", "-"});
    if (bytes.size() != static_cast<size_t>(width) * static_cast<size_t>(height)) {
        throw std::runtime_error(path + " has no frame " + std::to_string(index));
    }
    return cv::Mat(height, width, CV_8UC1, const_cast<char*>(bytes.data())).clone();
}

}  // namespace test_support
