#include "jobs/shots.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* kDate = "2026:01:02 03:04:05";

ShotFile picture(const std::string& path, const std::string& date = kDate, int width = 1936, int height = 0) {
    ShotFile file;
    file.path = path;
    file.description.is_picture = true;
    file.description.width = width;
    file.description.height = height == 0 ? width : height;
    file.description.datetime = date;
    file.description.source = "MERIDAN OPTICS RT-KA500";
    return file;
}

ShotFile movie(const std::string& path, int64_t frames) {
    ShotFile file = picture(path);
    file.description.is_picture = false;
    file.description.frames = frames;
    return file;
}

// "lens1.jpg+lens2.jpg" of a pair; else the kind and the name.
std::vector<std::string> found(const std::vector<ShotFile>& files, const std::optional<NamePattern>& pattern = {}) {
    std::vector<std::string> texts;
    for (const Shot& shot : find_shots(files, pattern)) {
        const std::string first = files[shot.files[0]].path;
        switch (shot.kind) {
            case ShotKind::kPair:
                texts.push_back(first + "+" + files[shot.files[1]].path);
                break;
            case ShotKind::kPanorama:
                texts.push_back("panorama " + first);
                break;
            case ShotKind::kLone:
                texts.push_back("lone " + first);
                break;
            default:
                texts.push_back("other " + first);
        }
    }
    return texts;
}

TEST(Shots, HalvesDifferInOneMark) {
    const std::vector<std::vector<std::string>> names = {
        {"lens1.jpg", "lens2.jpg"},    {"IMG_0007_1.jpg", "IMG_0007_2.jpg"},  {"x a.jpg", "x b.jpg"},
        {"SHOT-L.JPG", "SHOT-R.JPG"},  {"left of it.jpg", "right of it.jpg"}, {"7_Front.jpg", "7_Back.jpg"},
        {"7_front.jpg", "7_rear.jpg"}, {"2026-front.jpg", "2026-back.jpg"},   {"LENS1.jpg", "lens2.jpg"}};
    for (const auto& pair : names) {
        EXPECT_THAT(found({picture(pair[1]), picture(pair[0])}), ElementsAre(pair[0] + "+" + pair[1]));
    }
}

TEST(Shots, NumbersOfShotsAreNoMarks) {
    EXPECT_THAT(found({picture("IMG_0001.jpg"), picture("IMG_0002.jpg")}),
                ElementsAre("lone IMG_0001.jpg", "lone IMG_0002.jpg"));
    EXPECT_THAT(found({picture("b_1.jpg"), picture("b_2.jpg"), picture("b_3.jpg")}),
                ElementsAre("lone b_1.jpg", "lone b_2.jpg", "lone b_3.jpg"));
    EXPECT_THAT(found({picture("shot11.jpg"), picture("shot12.jpg")}),
                ElementsAre("lone shot11.jpg", "lone shot12.jpg"));
    EXPECT_THAT(found({picture("1.jpg"), picture("2.jpg")}), ElementsAre("lone 1.jpg", "lone 2.jpg"));
}

TEST(Shots, HalvesAgreeInAllThatTheyTell) {
    ShotFile other_camera = picture("x2.jpg");
    other_camera.description.source = "another";
    for (const ShotFile& second : {picture("x2.jpg", "2026:01:02 03:04:06"), picture("x2.jpg", kDate, 1440),
                                   other_camera, movie("x2.jpg", 1), picture("x2.jpeg"), picture("there/x2.jpg")}) {
        EXPECT_THAT(find_shots({picture("x1.jpg"), second}).size(), 2);
    }
    EXPECT_THAT(found({movie("x1.mov", 300), movie("x2.mov", 298)}), ElementsAre("x1.mov+x2.mov"));
    EXPECT_THAT(found({movie("x1.mov", 300), movie("x2.mov", 297)}), ElementsAre("lone x1.mov", "lone x2.mov"));
}

TEST(Shots, BurstOfOneSecondIsToldByNames) {
    EXPECT_THAT(found({picture("007_1.jpg"), picture("008_2.jpg"), picture("007_2.jpg"), picture("008_1.jpg")}),
                ElementsAre("007_1.jpg+007_2.jpg", "008_1.jpg+008_2.jpg"));
}

TEST(Shots, ThirdNumberShowsWhichOneCountsShots) {
    EXPECT_THAT(found({picture("a1_1.jpg"), picture("a1_2.jpg"), picture("a2_1.jpg"), picture("a2_2.jpg"),
                       picture("a3_1.jpg"), picture("a3_2.jpg")}),
                ElementsAre("a1_1.jpg+a1_2.jpg", "a2_1.jpg+a2_2.jpg", "a3_1.jpg+a3_2.jpg"));
}

TEST(Shots, WhatCanBeReadInTwoWaysIsLeftApart) {
    const std::vector<ShotFile> files = {picture("a1_1.jpg"), picture("a1_2.jpg"), picture("a2_1.jpg"),
                                         picture("a2_2.jpg")};
    for (const Shot& shot : find_shots(files)) {
        EXPECT_EQ(shot.kind, ShotKind::kLone);
        EXPECT_THAT(shot.why, HasSubstr("more than one file"));
    }
    EXPECT_THAT(found({picture("x_front.jpg"), picture("x_back.jpg"), picture("x_rear.jpg")}),
                ElementsAre("lone x_back.jpg", "lone x_front.jpg", "lone x_rear.jpg"));
}

TEST(Shots, LoneHalfTellsWhy) {
    const auto why = [](const std::vector<ShotFile>& files) { return find_shots(files).back().why; };
    EXPECT_THAT(why({picture("x1.jpg")}), HasSubstr("no second half is there"));
    EXPECT_THAT(why({picture("p.jpg"), picture("q.jpg")}), HasSubstr("names"));
    EXPECT_THAT(why({picture("x1.jpg", ""), picture("x2.jpg", "")}), HasSubstr("when it was taken"));
    // A pair of the same time is no candidate any more.
    EXPECT_THAT(why({picture("x1.jpg"), picture("x2.jpg"), picture("z.jpg")}), HasSubstr("no second half is there"));
}

TEST(Shots, ShapesTellPanoramasFromHalves) {
    EXPECT_THAT(found({picture("x1.jpg", kDate, 200, 100), picture("x2.jpg", kDate, 300, 200)}),
                ElementsAre("panorama x1.jpg", "other x2.jpg"));
}

TEST(Shots, ComeInOrderOfCaptureThenOfNames) {
    EXPECT_THAT(found({picture("c.jpg", "2026:01:02 03:04:06"), picture("b.jpg"), picture("a.jpg")}),
                ElementsAre("lone a.jpg", "lone b.jpg", "lone c.jpg"));
}

TEST(Shots, PatternReadsNamesAsItSays) {
    const NamePattern pattern("cam{lens}-{shot}-x");
    EXPECT_THAT(
        found({picture("cam2-1-x.jpg"), picture("cam1-1-x.jpg"), picture("lens1.jpg"), picture("lens2.jpg")}, pattern),
        ElementsAre("cam1-1-x.jpg+cam2-1-x.jpg", "lone lens1.jpg", "lone lens2.jpg"));
    const NamePattern last("{shot}{lens}");
    EXPECT_EQ(last.match("x_rear")->shot, "x_");
    EXPECT_EQ(last.match("x_rear")->lens, 1);
    EXPECT_FALSE(last.match("1"));
    EXPECT_FALSE(last.match("x3"));
}

TEST(Shots, PatternNeedsBothFieldsOnce) {
    for (const char* text : {"", "{shot}", "{lens}", "{shot}{shot}{lens}", "{shot}{lens}{lens}"}) {
        EXPECT_THROW(NamePattern{text}, std::invalid_argument) << text;
    }
}

}  // namespace
