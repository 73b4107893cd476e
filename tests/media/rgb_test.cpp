#include "media/rgb.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <gtest/gtest.h>

#include "media/scaler.h"

namespace {

using Values = std::array<int, 3>;  // Y, U, V or R, G, B

void fill_plane(AVFrame* frame, int plane, int rows, int value) {
    std::fill_n(frame->data[plane], rows * frame->linesize[plane], static_cast<uint8_t>(value));
}

FramePtr plain(int width, int height, AVColorRange range, Values yuv) {
    FramePtr frame = make_frame({width, height, AV_PIX_FMT_YUV420P}, range);
    for (int plane = 0; plane < 3; ++plane) {
        fill_plane(frame.get(), plane, plane == 0 ? height : (height + 1) / 2, yuv[static_cast<size_t>(plane)]);
    }
    return frame;
}

void expect_near(const cv::Vec3b& pixel, Values expected, int most) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(pixel[i], expected[static_cast<size_t>(i)], most) << "RGB"[i];
    }
}

int held(double value) {
    return static_cast<int>(std::lround(std::clamp(value, 0.0, 255.0)));
}

// ITU-T T.871, 7
Values rgb_by_formula(Values yuv) {
    const auto [y, u, v] = yuv;
    return {held(y + 1.402 * (v - 128)), held(y - 0.344136 * (u - 128) - 0.714136 * (v - 128)),
            held(y + 1.772 * (u - 128))};
}

}  // namespace

TEST(Rgb, HasTheColoursOfAJpeg) {
    for (const Values yuv : {Values{0, 128, 128}, Values{255, 128, 128}, Values{76, 85, 255}, Values{150, 44, 21},
                             Values{29, 255, 107}, Values{120, 100, 150}, Values{200, 30, 220}}) {
        const cv::Mat rgb = rgb_of(plain(8, 4, AVCOL_RANGE_JPEG, yuv).get());
        ASSERT_EQ(rgb.size(), cv::Size(8, 4));
        expect_near(rgb.at<cv::Vec3b>(0, 0), rgb_by_formula(yuv), 1);
        expect_near(rgb.at<cv::Vec3b>(3, 7), rgb_by_formula(yuv), 1);
    }
}

TEST(Rgb, BringsLimitedRangeToFull) {
    expect_near(rgb_of(plain(8, 4, AVCOL_RANGE_MPEG, {16, 128, 128}).get()).at<cv::Vec3b>(1, 1), {0, 0, 0}, 1);
    expect_near(rgb_of(plain(8, 4, AVCOL_RANGE_MPEG, {235, 128, 128}).get()).at<cv::Vec3b>(1, 1), {255, 255, 255}, 1);
}

TEST(Rgb, KeepsEveryLumaOfAGreyPicture) {
    const FramePtr frame = plain(64, 4, AVCOL_RANGE_JPEG, {0, 128, 128});
    for (int i = 0; i < 256; ++i) {
        frame->data[0][i / 64 * frame->linesize[0] + i % 64] = static_cast<uint8_t>(i);
    }
    const cv::Mat rgb = rgb_of(frame.get());
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(rgb.at<cv::Vec3b>(i / 64, i % 64), cv::Vec3b::all(static_cast<uint8_t>(i)));
    }
}

// Each chroma sample lies in the middle of its four pixels.
TEST(Rgb, InterpolatesChromaBetweenItsSamples) {
    const FramePtr frame = plain(4, 2, AVCOL_RANGE_JPEG, {100, 128, 128});
    frame->data[2][1] = 168;
    const cv::Mat rgb = rgb_of(frame.get());
    for (const auto& [x, v] : {std::pair{0, 128}, std::pair{1, 138}, std::pair{2, 158}, std::pair{3, 168}}) {
        expect_near(rgb.at<cv::Vec3b>(0, x), rgb_by_formula({100, 128, v}), 1);
    }
}

TEST(Rgb, TakesOddSides) {
    const FramePtr frame = plain(5, 3, AVCOL_RANGE_JPEG, {100, 128, 128});
    frame->data[0][2 * frame->linesize[0] + 4] = 200;
    frame->data[1][frame->linesize[1] + 2] = 90;
    const cv::Mat rgb = rgb_of(frame.get());
    ASSERT_EQ(rgb.size(), cv::Size(5, 3));
    expect_near(rgb.at<cv::Vec3b>(2, 4), rgb_by_formula({200, 107, 128}), 1);
    EXPECT_EQ(rgb.at<cv::Vec3b>(0, 0), cv::Vec3b::all(100));
}
