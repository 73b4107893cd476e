#include "base/files.h"

#include <climits>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "nq360.h"
#include "support/child.h"
#include "support/fake_volume.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

class Files : public testing::Test {
  protected:
    Files() { fs::permissions(dir.path(), fs::perms(0755)); }

    std::string make_file(const std::string& name, size_t size = 3) { return dir.file(name, zeros(size)); }

    TempDir dir;
    std::string missing = dir.file("missing");
};

constexpr uint64_t kMargin = 52428800;  // 50 MiB

}  // namespace

TEST_F(Files, WhateverStatFindsExists) {
    fs::create_symlink(make_file("file"), dir.file("link"));
    fs::create_symlink(missing, dir.file("dangling"));
    for (const auto exists : {fileExists, isCancelled}) {
        EXPECT_TRUE(exists(dir.file("file").c_str()));
        EXPECT_TRUE(exists(dir.path().c_str()));
        EXPECT_TRUE(exists(dir.file("link").c_str()));
        EXPECT_FALSE(exists(dir.file("dangling").c_str()));
        EXPECT_FALSE(exists(missing.c_str()));
        EXPECT_FALSE(exists(""));
        EXPECT_FALSE(exists(nullptr));
    }
}

TEST_F(Files, OnlyRegularFilesAreRegular) {
    fs::create_symlink(make_file("file"), dir.file("link"));
    ASSERT_EQ(mkfifo(dir.file("pipe").c_str(), 0600), 0);
    EXPECT_TRUE(isRegularFile(dir.file("file").c_str()));
    EXPECT_TRUE(isRegularFile(dir.file("link").c_str()));
    EXPECT_FALSE(isRegularFile(dir.file("pipe").c_str()));
    EXPECT_FALSE(isRegularFile(dir.path().c_str()));
    EXPECT_FALSE(isRegularFile("/dev/null"));
    EXPECT_FALSE(isRegularFile(missing.c_str()));
    EXPECT_FALSE(isRegularFile(nullptr));
}

TEST_F(Files, SameFileIsToldByDeviceAndInode) {
    const std::string file = make_file("file");
    const std::string other = make_file("other");
    fs::create_symlink(file, dir.file("symbolic"));
    fs::create_hard_link(file, dir.file("hard"));
    EXPECT_TRUE(isSameFile(file.c_str(), file.c_str()));
    EXPECT_TRUE(isSameFile(file.c_str(), (dir.path() + "/./file").c_str()));
    EXPECT_TRUE(isSameFile(file.c_str(), dir.file("symbolic").c_str()));
    EXPECT_TRUE(isSameFile(dir.file("hard").c_str(), file.c_str()));
    EXPECT_FALSE(isSameFile(file.c_str(), other.c_str()));
    EXPECT_FALSE(isSameFile(file.c_str(), missing.c_str()));
    EXPECT_FALSE(isSameFile(nullptr, file.c_str()));
    EXPECT_FALSE(isSameFile(file.c_str(), nullptr));
    EXPECT_FALSE(isSameFile(nullptr, nullptr));
}

// Two paths to which nothing has been written yet.
// Numbers of files count anew on each volume; the roots of many have the same.
TEST_F(Files, OfTwoVolumesAreNeverTheSame) {
    const char* const paths[] = {"/proc", "/sys", "/dev", "/dev/shm", "/dev/pts", "/run", "/tmp", "/"};
    bool any = false;
    for (const char* one : paths) {
        for (const char* other : paths) {
            struct stat of_one = {};
            struct stat of_other = {};
            if (stat(one, &of_one) == 0 && stat(other, &of_other) == 0 && of_one.st_ino == of_other.st_ino &&
                of_one.st_dev != of_other.st_dev) {
                EXPECT_FALSE(isSameFile(one, other)) << one << " and " << other;
                any = true;
            }
        }
    }
    if (!any) {
        GTEST_SKIP() << "no two volumes here give a file the same number";
    }
}

TEST_F(Files, SamePlaceIsToldByDirectoryAndName) {
    const std::string same = dir.path() + "/./missing";
    const std::string other = dir.file("other");
    fs::create_directory(dir.file("folder"));
    const std::string below = dir.file("folder") + "/missing";
    const std::string nowhere = dir.file("no folder") + "/missing";
    EXPECT_TRUE(isSameFile(missing.c_str(), missing.c_str()));
    EXPECT_TRUE(isSameFile(missing.c_str(), same.c_str()));
    EXPECT_FALSE(isSameFile(missing.c_str(), other.c_str()));
    EXPECT_FALSE(isSameFile(missing.c_str(), below.c_str()));
    EXPECT_FALSE(isSameFile(nowhere.c_str(), nowhere.c_str()));
    EXPECT_FALSE(isSameFile(missing.c_str(), nullptr));
    EXPECT_TRUE(
        true_in_child([&] { return chdir(dir.path().c_str()) == 0 && isSameFile("missing", missing.c_str()); }));
}

TEST_F(Files, NewFileIsJudgedByItsDirectory) {
    EXPECT_TRUE(isWritable(missing.c_str()));
    EXPECT_TRUE(isWritable(make_file("file").c_str()));
    EXPECT_TRUE(isWritable(dir.path().c_str()));
    EXPECT_FALSE(isWritable((missing + "/file").c_str()));
}

TEST_F(Files, ReadOnlyDirectoryIsNotWritable) {
    const std::string closed = dir.file("closed");
    fs::create_directory(closed);
    const std::string inside = closed + "/file";
    const std::string open_file = closed + "/open";
    write_file(open_file, zeros(1));
    fs::permissions(open_file, fs::perms(0666));
    fs::permissions(closed, fs::perms(0555));
    EXPECT_TRUE(true_unprivileged([&] { return !isWritable(inside.c_str()) && !isWritable(closed.c_str()); }));
    // A file that is there is judged by itself.
    EXPECT_TRUE(true_unprivileged([&] { return isWritable(open_file.c_str()); }));
}

TEST_F(Files, ReadOnlyFileIsNotWritable) {
    const std::string file = make_file("file");
    fs::permissions(file, fs::perms(0444));
    fs::permissions(dir.path(), fs::perms(0777));
    EXPECT_TRUE(true_unprivileged([&] { return !isWritable(file.c_str()) && isWritable(missing.c_str()); }));
}

TEST_F(Files, NullAndPlainNamesAskTheCurrentDirectory) {
    fs::permissions(dir.path(), fs::perms(0777));
    const std::string closed = dir.file("closed");
    fs::create_directory(closed);
    fs::permissions(closed, fs::perms(0555));
    EXPECT_TRUE(true_unprivileged(
        [&] { return chdir(dir.path().c_str()) == 0 && isWritable(nullptr) && isWritable("plain"); }));
    EXPECT_TRUE(
        true_unprivileged([&] { return chdir(closed.c_str()) == 0 && !isWritable(nullptr) && !isWritable("plain"); }));
}

TEST_F(Files, RemoveTakesFilesAndLinksOnly) {
    const std::string file = make_file("file");
    const std::string link = dir.file("link");
    const std::string folder = dir.file("folder");
    const std::string pipe = dir.file("pipe");
    fs::create_symlink(file, link);
    fs::create_directory(folder);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    EXPECT_EQ(remove_file(link.c_str()), 0);
    EXPECT_FALSE(fs::is_symlink(link));
    EXPECT_TRUE(fs::exists(file));
    EXPECT_EQ(remove_file(file.c_str()), 0);
    EXPECT_FALSE(fs::exists(file));

    EXPECT_EQ(remove_file(folder.c_str()), -1);
    EXPECT_TRUE(fs::exists(folder));
    EXPECT_EQ(remove_file(pipe.c_str()), -1);
    EXPECT_TRUE(fs::exists(pipe));
    EXPECT_EQ(remove_file(missing.c_str()), -1);
    EXPECT_EQ(remove_file(nullptr), -1);
}

TEST_F(Files, DirnameLeavesItsArgumentAlone) {
    const std::string path = "/a/b/c.mov";
    EXPECT_STREQ(nq360_dirname(path.c_str()), "/a/b");
    EXPECT_EQ(path, "/a/b/c.mov");
    EXPECT_STREQ(nq360_dirname("/a/"), "/");
    EXPECT_STREQ(nq360_dirname("/"), "/");
    EXPECT_STREQ(nq360_dirname("name"), ".");
    EXPECT_STREQ(nq360_dirname(""), ".");
    EXPECT_STREQ(nq360_dirname(nullptr), ".");
}

TEST_F(Files, DirnameOfTwoThreadsDoesNotMix) {
    const char* here = nq360_dirname("/here/file");
    std::thread([] { EXPECT_STREQ(nq360_dirname("/elsewhere/file"), "/elsewhere"); }).join();
    EXPECT_STREQ(here, "/here");
}

TEST_F(Files, FilesizeTellsDirectories) {
    bool is_dir = true;
    EXPECT_EQ(nq360_filesize(make_file("file", 12345).c_str(), &is_dir), 12345u);
    EXPECT_FALSE(is_dir);
    EXPECT_NE(nq360_filesize(dir.path().c_str(), &is_dir), UINT64_MAX);
    EXPECT_TRUE(is_dir);
    EXPECT_EQ(nq360_filesize(dir.file("file").c_str(), nullptr), 12345u);
}

TEST_F(Files, FilesizeOfNothingIsAllOnesAndLeavesTheFlag) {
    for (const bool before : {false, true}) {
        bool is_dir = before;
        EXPECT_EQ(nq360_filesize(missing.c_str(), &is_dir), UINT64_MAX);
        EXPECT_EQ(nq360_filesize(nullptr, &is_dir), UINT64_MAX);
        EXPECT_EQ(is_dir, before);
    }
}

TEST_F(Files, FilesizeKnowsFilesBeyondFourGigabytes) {
    const std::string file = make_file("holes");
    fs::resize_file(file, 5000000000);
    EXPECT_EQ(nq360_filesize(file.c_str(), nullptr), 5000000000u);
}

// ---- Free space ----

TEST_F(Files, FreesizeAsksADirectoryItselfAndElseTheParent) {
    FakeVolume volume(1000);
    nq360_freesize(dir.path().c_str());
    EXPECT_EQ(volume.asked(), dir.path());
    nq360_freesize(make_file("file").c_str());
    EXPECT_EQ(volume.asked(), dir.path());
    nq360_freesize(missing.c_str());
    EXPECT_EQ(volume.asked(), dir.path());
    nq360_freesize("plain name");
    EXPECT_EQ(volume.asked(), ".");
    nq360_freesize(nullptr);
    EXPECT_EQ(volume.asked(), ".");
}

TEST_F(Files, FreesizeIsAvailableBlocksTimesFragmentSize) {
    FakeVolume volume(123456, 4096);
    EXPECT_EQ(nq360_freesize(dir.path().c_str()), 123456u * 4096u);
    EXPECT_EQ(NQ360_freesize(dir.path().c_str()), 123456u * 4096u);
}

TEST_F(Files, FreesizeIsWhatTheSystemSays) {
    struct statvfs status = {};
    ASSERT_EQ(statvfs(dir.path().c_str(), &status), 0);
    EXPECT_NEAR(static_cast<double>(NQ360_freesize(dir.path().c_str())),
                static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize), 1e9);
}

TEST_F(Files, VolumeThatCannotBeAskedIsFull) {
    FakeVolume volume(1ULL << 40);
    volume.fail();
    EXPECT_EQ(nq360_freesize(dir.path().c_str()), 0u);
    EXPECT_EQ(check_freesize(nullptr, nullptr, missing.c_str()), -1);
}

TEST_F(Files, MissingParentHasNoRoom) {
    EXPECT_EQ(nq360_freesize((missing + "/file").c_str()), 0u);
}

TEST_F(Files, ExactlyFiftyMebibytesIsFull) {
    {
        FakeVolume volume(kMargin);
        EXPECT_EQ(check_freesize(nullptr, nullptr, missing.c_str()), -1);
    }
    FakeVolume volume(kMargin + 1);
    EXPECT_EQ(check_freesize(nullptr, nullptr, missing.c_str()), 0);
}

TEST_F(Files, RoomForACopyOfBothInputsIsNeeded) {
    const std::string input1 = make_file("input1", 1000);
    const std::string input2 = make_file("input2", 500);
    const auto fits = [&](uint64_t free, const std::string* one, const std::string* two) {
        FakeVolume volume(free);
        return check_freesize(one ? one->c_str() : nullptr, two ? two->c_str() : nullptr, missing.c_str()) == 0;
    };
    EXPECT_FALSE(fits(kMargin + 1500, &input1, &input2));
    EXPECT_TRUE(fits(kMargin + 1501, &input1, &input2));
    EXPECT_FALSE(fits(kMargin + 1000, &input1, nullptr));
    EXPECT_TRUE(fits(kMargin + 1001, &input1, nullptr));
    EXPECT_FALSE(fits(kMargin + 500, nullptr, &input2));
    EXPECT_TRUE(fits(kMargin + 501, nullptr, &input2));
    EXPECT_FALSE(fits(0, &input1, &input2));
}

TEST_F(Files, NamedInputThatIsNotThereAddsAByteOfRoom) {
    {
        FakeVolume volume(kMargin);
        EXPECT_EQ(check_freesize(missing.c_str(), nullptr, missing.c_str()), 0);
    }
    FakeVolume volume(kMargin - 1);
    EXPECT_EQ(check_freesize(missing.c_str(), nullptr, missing.c_str()), -1);
    EXPECT_EQ(check_freesize(missing.c_str(), missing.c_str(), missing.c_str()), 0);
}

TEST_F(Files, VolumeOfManyBlocksIsNotFull) {
    for (const uint64_t blocks : {1ULL << 32, (1ULL << 32) + 1, 5ULL << 32, 1ULL << 40}) {
        FakeVolume volume(blocks, 4096);
        EXPECT_EQ(nq360_freesize(dir.path().c_str()), blocks * 4096);
        EXPECT_EQ(check_freesize(nullptr, nullptr, missing.c_str()), 0) << blocks;
    }
}

TEST_F(Files, VolumeWithoutALimitIsNotFull) {
    const std::string input = make_file("input", 1000);
    for (const uint64_t blocks : {1ULL << 51, 1ULL << 52, 1ULL << 60, ULLONG_MAX}) {
        FakeVolume volume(blocks, 4096);
        EXPECT_EQ(check_freesize(nullptr, nullptr, missing.c_str()), 0) << blocks;
        EXPECT_EQ(check_freesize(input.c_str(), input.c_str(), missing.c_str()), 0) << blocks;
    }
}
