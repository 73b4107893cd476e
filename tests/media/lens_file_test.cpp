#include "media/lens_file.h"

#include <filesystem>
#include <limits>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "media/full_range.h"

extern "C" {
#include <libavutil/error.h>
}

#include "sample/frame_code.h"
#include "support/media.h"
#include "support/plain_media.h"
#include "support/samples.h"

using namespace test_support;

namespace {

constexpr double kFrameSeconds = 1001.0 / 30000;

// The number burnt into a frame; -1 for no frame.
int number_of(const FramePtr& frame) {
    if (!frame) {
        return -1;
    }
    const sample::LumaView view{frame->data[0], frame->width, frame->height, frame->linesize[0]};
    const std::optional<sample::FrameCode> code = sample::read_lens_code(view);
    return code ? code->number : -2;
}

class LensFileTest : public testing::Test {
  protected:
    std::string movie(const std::vector<std::string>& more) {
        std::vector<std::string> options = {"--size", "320", "--frames", "12", "--key-frames", "4"};
        options.insert(options.end(), more.begin(), more.end());
        return movies_in(dir, options).one;
    }

    TempDir dir;
};

}  // namespace

TEST_F(LensFileTest, GivesTheFirstFrameAtOrAfterTheTime) {
    for (const char* codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        LensFile file(movie({"--codec", codec}).c_str());
        EXPECT_FALSE(file.is_still());
        for (const int frame : {0, 5, 11, 2, 2, 0, 8}) {
            EXPECT_EQ(number_of(file.frame_at(frame * kFrameSeconds)), frame) << codec;
            EXPECT_EQ(number_of(file.frame_at((frame - 0.5) * kFrameSeconds)), frame) << codec;
        }
    }
}

// 0.1001 s is written for 3 frames of 1001/30000 s.
TEST_F(LensFileTest, TimesAreMeantAsTheyAreWritten) {
    LensFile file(movie({}).c_str());
    EXPECT_EQ(number_of(file.frame_at(0.1001)), 3);
    EXPECT_EQ(number_of(file.frame_at(0.10014)), 3);
    EXPECT_EQ(number_of(file.frame_at(0.11)), 4);
}

TEST_F(LensFileTest, GivesNothingBehindTheEndAndGoesOnAfterThat) {
    LensFile file(movie({}).c_str());
    EXPECT_EQ(number_of(file.frame_at(12 * kFrameSeconds)), -1);
    EXPECT_EQ(number_of(file.frame_at(1e300)), -1);
    EXPECT_EQ(number_of(file.frame_at(std::numeric_limits<double>::infinity())), -1);
    EXPECT_EQ(number_of(file.frame_at(-5)), 0);
    EXPECT_EQ(number_of(file.frame_at(7 * kFrameSeconds)), 7);
}

TEST_F(LensFileTest, FileThatHasGoneIsTold) {
    const std::string path = movie({});
    LensFile file(path.c_str());
    EXPECT_EQ(number_of(file.frame_at(0)), 0);
    std::filesystem::remove(path);
    EXPECT_THROW(file.frame_at(0), UnreadableFile);
    EXPECT_THROW(file.frame_at(0), UnreadableFile);
}

TEST_F(LensFileTest, DurationIsTheMovies) {
    EXPECT_NEAR(LensFile(movie({}).c_str()).duration(), 12 * kFrameSeconds, 1e-6);
}

TEST_F(LensFileTest, StillHasItsPictureAtAnyTime) {
    LensFile file(stills_in(dir, {"--size", "320", "--code", "77"}).one.c_str());
    EXPECT_TRUE(file.is_still());
    for (const double seconds : {0.0, 9.0, 0.0}) {
        EXPECT_EQ(number_of(file.frame_at(seconds)), 77);
    }
}

TEST_F(LensFileTest, FourTwoTwoBecomesFourTwoZeroOfTheSameRange) {
    LensFile file(stills_in(dir, {"--size", "320", "--chroma", "422"}).one.c_str());
    const FramePtr frame = file.frame_at(0);
    EXPECT_EQ(frame->format, AV_PIX_FMT_YUV420P);
    EXPECT_TRUE(has_full_range(frame.get()));
    const TempDir other;
    const FramePtr plain = LensFile(stills_in(other, {"--size", "320"}).one.c_str()).frame_at(0);
    for (int plane = 0; plane < 3; ++plane) {
        EXPECT_LT(
            cv::norm(media_detail::plane(frame.get(), plane), media_detail::plane(plain.get(), plane), cv::NORM_L1),
            2.5 * 320 * 320 / (plane == 0 ? 1 : 4));
    }
}

TEST_F(LensFileTest, OnlyPicturesHaveFullRange) {
    LensFile movie_file(movie({}).c_str());
    EXPECT_FALSE(has_full_range(movie_file.frame_at(0).get()));
    LensFile mjpeg_file(movie({"--codec", "mjpeg"}).c_str());
    EXPECT_TRUE(has_full_range(mjpeg_file.frame_at(0).get()));
}

TEST_F(LensFileTest, OtherFormatsStayAsTheyAre) {
    LensFile file(stills_in(dir, {"--size", "320", "--chroma", "444"}).one.c_str());
    EXPECT_EQ(file.frame_at(0)->format, AV_PIX_FMT_YUVJ444P);
}

TEST_F(LensFileTest, DamagedPicturesAreNothing) {
    const std::string path = dir.file("zeros.jpg", Bytes{0xff, 0xd8, 0xff, 0xd9});
    try {
        EXPECT_FALSE(LensFile(path.c_str()).frame_at(0));
    } catch (const UnreadableFile&) {
    }
}

TEST_F(LensFileTest, WhatCannotBeOpenedIsToldWithFFmpegsCode) {
    try {
        const LensFile file(dir.file("missing.jpg").c_str());
        FAIL() << "a missing file is opened";
    } catch (const UnreadableFile& error) {
        EXPECT_EQ(error.code(), AVERROR(ENOENT));
        EXPECT_STREQ(error.what(), "No such file or directory");
    }
}
