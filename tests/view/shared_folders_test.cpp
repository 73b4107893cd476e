#include "shared_folders.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "jobs/errors.h"
#include "support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

using test_support::Bytes;
using test_support::read_file;
using test_support::write_file;

class SharedFoldersTest : public testing::Test {
  protected:
    SharedFoldersTest() {
        fs::create_directories(dir_.file("shots"));
        fs::create_directories(dir_.file("made"));
    }

    test_support::TempDir dir_;
};

TEST_F(SharedFoldersTest, PlacesWhatWasMadeWhereNothingStands) {
    const SharedFolders folders(dir_.file("shots"), dir_.file("made"));
    const std::string work = folders.work_file("a.mov");
    EXPECT_NE(work, folders.work_file("a.mov"));
    EXPECT_EQ(fs::path(work).extension(), ".mov");
    EXPECT_EQ(fs::path(work).parent_path(), folders.made());
    write_file(work, {1});
    EXPECT_TRUE(folders.place(work, "a.mov"));
    EXPECT_EQ(read_file(folders.made() + "/a.mov"), Bytes{1});
    EXPECT_FALSE(fs::exists(work));
}

TEST_F(SharedFoldersTest, ReplacesNothing) {
    const SharedFolders folders(dir_.file("shots"), dir_.file("made"));
    const std::string work = folders.work_file("a.mov");
    write_file(work, {1});
    for (const std::string& folder : {folders.folder(), folders.made()}) {
        write_file(folder + "/a.mov", {2});
        EXPECT_FALSE(folders.place(work, "a.mov")) << folder;
        EXPECT_EQ(read_file(folder + "/a.mov"), Bytes{2});
        EXPECT_EQ(read_file(work), Bytes{1});
        fs::remove(folder + "/a.mov");
    }
    fs::create_symlink("nowhere", folders.made() + "/a.mov");
    EXPECT_FALSE(folders.place(work, "a.mov"));
}

TEST_F(SharedFoldersTest, NamesWhatCannotBePlaced) {
    const SharedFolders folders(dir_.file("shots"), dir_.file("made"));
    try {
        folders.place(folders.work_file("a.mov"), "a.mov");
        ADD_FAILURE();
    } catch (const CommandError& error) {
        EXPECT_EQ(std::string(error.what()).rfind("a.mov: ", 0), 0) << error.what();
    }
}

}  // namespace
