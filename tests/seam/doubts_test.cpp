#include "seam/doubts.h"

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/samples.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Doubts : public testing::Test {
  protected:
    std::string still(const std::string& name, const std::string& datetime) {
        const Shot shot = stills_in(dir, {"--size", "64", "--datetime", datetime});
        const std::string path = dir.file(name);
        fs::copy_file(shot.one, path, fs::copy_options::overwrite_existing);
        return path;
    }

    static std::string doubts(const std::string& one, const std::string& two) {
        return doubts_about(one.c_str(), two.c_str());
    }

    TempDir dir;
};

}  // namespace

TEST_F(Doubts, AreNoneAboutOneShot) {
    const Shot stills = stills_in(dir, {"--size", "64"});
    EXPECT_THAT(doubts(stills.one, stills.two), IsEmpty());
    const Shot movies = movies_in(dir, {"--size", "64", "--frames", "2", "--sound", "1"});
    EXPECT_THAT(doubts(movies.one, movies.two), IsEmpty());
}

TEST_F(Doubts, AreAboutOneFileTwice) {
    const std::string path = still("a.jpg", "2026:01:02 03:04:05");
    EXPECT_THAT(doubts(path, path), HasSubstr("the same file"));
    fs::create_hard_link(path, dir.file("b.jpg"));
    EXPECT_THAT(doubts(path, dir.file("b.jpg")), HasSubstr("the same file"));
}

TEST_F(Doubts, AreAboutTimesMoreThanTwoSecondsApart) {
    const std::string one = still("a.jpg", "2026:01:02 03:04:05");
    EXPECT_THAT(doubts(one, still("b.jpg", "2026:01:02 03:04:07")), IsEmpty());
    EXPECT_THAT(doubts(one, still("c.jpg", "2026:01:02 03:04:03")), IsEmpty());
    EXPECT_EQ(doubts(one, still("d.jpg", "2026:01:02 03:04:08")),
              "the halves were taken at two times, 2026:01:02 03:04:05 and 2026:01:02 03:04:08");
    EXPECT_THAT(doubts(still("e.jpg", "2025:12:31 23:59:59"), one), HasSubstr("two times"));
    EXPECT_THAT(doubts(one, still("f.jpg", "no date")), IsEmpty());
}

TEST_F(Doubts, AreAboutSoundWithLens2Alone) {
    const Shot movies = movies_in(dir, {"--size", "64", "--frames", "2", "--sound", "1"});
    EXPECT_THAT(doubts(movies.two, movies.one), HasSubstr("may be swapped: the camera records the sound"));
    const Shot both = movies_in(dir, {"--size", "64", "--frames", "2", "--sound", "both"});
    EXPECT_THAT(doubts(both.two, both.one), HasSubstr("the name with 2"));
}

TEST_F(Doubts, AreAboutNamesNumberedTheOtherWay) {
    const std::string time = "2026:01:02 03:04:05";
    const auto doubts_of = [&](const std::string& one, const std::string& two) {
        return doubts(still(one, time), still(two, time));
    };
    EXPECT_THAT(doubts_of("R0012-2.jpg", "R0012-1.jpg"), HasSubstr("may be swapped"));
    EXPECT_THAT(doubts_of("R0012-1.jpg", "R0012-2.jpg"), IsEmpty());
    EXPECT_THAT(doubts_of("R0012.jpg", "R0011.jpg"), HasSubstr("may be swapped"));
    EXPECT_THAT(doubts_of("R0032.jpg", "R0041.jpg"), IsEmpty()) << "two things differ";
    EXPECT_THAT(doubts_of("R2-007.jpg", "R1-008.jpg"), IsEmpty()) << "two things differ";
    EXPECT_THAT(doubts_of("R2.jpg", "R11.jpg"), IsEmpty());
}

TEST_F(Doubts, AreNoneAboutFilesThatHaveGone) {
    EXPECT_THAT(doubts(dir.file("none2.jpg"), dir.file("none1.jpg")), IsEmpty());
}
