// What a source may include can be told from its folder: its own folder, and those further down.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

// From the bottom to the top.
const std::vector<std::string> kFolders = {"base", "metadata", "projection", "media", "seam", "api"};

// How far up a folder lies; negative for one that has no place.
std::ptrdiff_t height_of(const fs::path& file) {
    const auto found = std::find(kFolders.begin(), kFolders.end(), file.parent_path().string());
    return found == kFolders.end() ? -1 : found - kFolders.begin();
}

// What lies or includes where it must not, in a tree of sources.
std::vector<std::string> faults_of(const fs::path& root) {
    static const std::regex include("\\s*#\\s*include\\s*\"([^\"]*)\".*");
    std::vector<std::string> faults;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_directory()) {
            continue;
        }
        const fs::path source = entry.path().lexically_relative(root);
        if (height_of(source) < 0) {
            faults.push_back(source.string());
        }
        std::ifstream file(entry.path());
        std::smatch match;
        for (std::string line; std::getline(file, line);) {
            if (!std::regex_match(line, match, include) || match[1] == "nq360.h") {
                continue;
            }
            const std::ptrdiff_t height = height_of(match.str(1));
            if (height < 0 || height > height_of(source)) {
                faults.push_back(source.string() + " includes " + match.str(1));
            }
        }
    }
    return faults;
}

}  // namespace

TEST(Includes, RunDown) {
    EXPECT_THAT(faults_of(fs::path(NQ360_TEST_DATA).parent_path().parent_path() / "src"), IsEmpty());
}

TEST(Includes, ThatRunUpOrOutAreFound) {
    TempDir dir;
    for (const std::string folder : {"base", "media", "api", "media/codecs", "other"}) {
        fs::create_directories(dir.path() + "/" + folder);
    }
    dir.file("api/a.cpp", text("#include <map>\n#include \"api/a.h\"\n#include \"base/b.h\"\n#include \"nq360.h\"\n"));
    dir.file("base/b.h", text("#include <string>\n  # include \"api/a.h\"  // up\n"));
    dir.file("media/m.cpp", text("#include \"media/m.h\"\n#include \"seam/s.h\"\n#include \"m.h\"\n"));
    dir.file("media/codecs/c.h", text(""));
    dir.file("other/o.h", text("#include \"base/b.h\"\n"));
    dir.file("main.cpp", text(""));
    EXPECT_THAT(
        faults_of(dir.path()),
        UnorderedElementsAre("base/b.h includes api/a.h", "media/m.cpp includes seam/s.h", "media/m.cpp includes m.h",
                             "media/codecs/c.h", "other/o.h", "other/o.h includes base/b.h", "main.cpp"));
}
