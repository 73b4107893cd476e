#include "base/output_place.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

size_t files_in(const TempDir& dir) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()));
}

}  // namespace

TEST(OutputPlace, InPlaceIsThePathItselfAndAFailureTakesItAway) {
    TempDir dir;
    const std::string path = dir.file("out.jpg", text("earlier"));
    {
        OutputPlace untouched(path.c_str(), OutputPlace::kInPlace);
        untouched.discard();
        EXPECT_TRUE(fs::exists(path)) << "a job that was refused has written nothing";
    }
    OutputPlace place(path.c_str(), OutputPlace::kInPlace);
    EXPECT_EQ(place.prepare(), "");
    EXPECT_EQ(place.path(), path);
    place.keep();
    EXPECT_TRUE(fs::exists(path));
    place.discard();
    EXPECT_FALSE(fs::exists(path));
}

TEST(OutputPlace, BesideTakesThePlaceOnlyWhenKept) {
    TempDir dir;
    const std::string path = dir.file("out.jpg", text("earlier"));
    {
        OutputPlace place(path.c_str(), OutputPlace::kBeside);
        EXPECT_EQ(place.prepare(), "");
        EXPECT_EQ(fs::path(place.path()).parent_path(), dir.path());
        EXPECT_EQ(fs::path(place.path()).extension(), ".jpg") << "it tells the kind of file";
        write_file(place.path(), text("new"));
        EXPECT_EQ(read_file(path), text("earlier"));
        place.keep();
        EXPECT_EQ(read_file(path), text("new"));
    }
    EXPECT_EQ(read_file(path), text("new"));
    {
        OutputPlace place(path.c_str(), OutputPlace::kBeside);
        EXPECT_EQ(place.prepare(), "");
    }
    EXPECT_EQ(read_file(path), text("new"));
    EXPECT_EQ(files_in(dir), 1u) << "what is not kept goes with the object";
}

TEST(OutputPlace, TwoBesideOneOutputDoNotMeet) {
    TempDir dir;
    const std::string path = dir.file("out");
    OutputPlace one(path.c_str(), OutputPlace::kBeside);
    OutputPlace two(path.c_str(), OutputPlace::kBeside);
    EXPECT_EQ(one.prepare(), "");
    EXPECT_EQ(two.prepare(), "");
    EXPECT_STRNE(one.path(), two.path());
}

TEST(OutputPlace, OfTheLongestNameFits) {
    TempDir dir;
    const std::string path = dir.file(std::string(251, 'n') + ".jpg");
    OutputPlace place(path.c_str(), OutputPlace::kBeside);
    EXPECT_EQ(place.prepare(), "");
    place.keep();
    EXPECT_TRUE(fs::exists(path));
}

TEST(OutputPlace, SaysWhyNothingCanBeWritten) {
    TempDir dir;
    const std::string missing = dir.file("missing") + "/out.jpg";
    EXPECT_EQ(OutputPlace(missing.c_str(), OutputPlace::kBeside).prepare(),
              "nothing can be written beside it: No such file or directory");
    EXPECT_EQ(OutputPlace(dir.path().c_str(), OutputPlace::kBeside).prepare(),
              "not a regular file, which alone can be replaced");
}
