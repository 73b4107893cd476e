#include "media/jpeg_encoder.h"

#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "media/scaler.h"
#include "support/picture.h"
#include "support/temp_dir.h"

using namespace test_support;

namespace {

// A gradient in each plane, of this size and range.
FramePtr gradient(int width, int height, AVColorRange range) {
    FramePtr frame = make_frame({width, height, AV_PIX_FMT_YUV420P}, range);
    for (int plane = 0; plane < 3; ++plane) {
        for (int y = 0; y < (plane == 0 ? height : (height + 1) / 2); ++y) {
            for (int x = 0; x < (plane == 0 ? width : (width + 1) / 2); ++x) {
                frame->data[plane][y * frame->linesize[plane] + x] = static_cast<uint8_t>(30 + 40 * plane + x + y / 2);
            }
        }
    }
    return frame;
}

std::string written(const TempDir& dir, const PacketPtr& packet) {
    return dir.file("picture.jpg", Bytes(packet->data, packet->data + packet->size));
}

cv::Mat plane_of_frame(const FramePtr& frame, int plane) {
    const int width = plane == 0 ? frame->width : (frame->width + 1) / 2;
    const int height = plane == 0 ? frame->height : (frame->height + 1) / 2;
    return cv::Mat(height, width, CV_8UC1, frame->data[plane], static_cast<size_t>(frame->linesize[plane]));
}

}  // namespace

TEST(EncodedJpeg, HoldsThePictureOfOddSizesToo) {
    const TempDir dir;
    for (const auto& [width, height] : {std::pair{64, 32}, std::pair{65, 33}, std::pair{2, 2}}) {
        const FramePtr frame = gradient(width, height, AVCOL_RANGE_JPEG);
        const Planes planes = planes_of(written(dir, encoded_jpeg(frame.get(), 95)));
        for (int plane = 0; plane < 3; ++plane) {
            EXPECT_GT(psnr(planes[static_cast<size_t>(plane)], plane_of_frame(frame, plane)), 38) << width << plane;
        }
    }
}

TEST(EncodedJpeg, BringsLimitedRangeToFull) {
    const TempDir dir;
    const FramePtr frame = gradient(64, 32, AVCOL_RANGE_MPEG);
    const Planes planes = planes_of(written(dir, encoded_jpeg(frame.get(), 95)));
    cv::Mat full;
    plane_of_frame(frame, 0).convertTo(full, CV_8U, 255.0 / 219, -16 * 255.0 / 219);
    EXPECT_GT(psnr(planes[0], full), 38);
}

TEST(EncodedJpeg, IsFinerAndLargerWithMoreQuality) {
    const TempDir dir;
    const FramePtr frame = gradient(256, 128, AVCOL_RANGE_JPEG);
    double last_psnr = 0;
    int last_size = 0;
    for (const int quality : {1, 50, 85, 95, 100}) {
        const PacketPtr packet = encoded_jpeg(frame.get(), quality);
        const double here = psnr(planes_of(written(dir, packet))[0], plane_of_frame(frame, 0));
        EXPECT_GT(here, last_psnr) << quality;
        EXPECT_GT(packet->size, last_size) << quality;
        last_psnr = here;
        last_size = packet->size;
    }
}

TEST(EncodedJpeg, LeavesThePictureAsItIs) {
    const FramePtr frame = gradient(64, 32, AVCOL_RANGE_JPEG);
    encoded_jpeg(frame.get(), 10);
    EXPECT_EQ(frame->format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(frame->quality, 0);
    EXPECT_EQ(cv::norm(plane_of_frame(frame, 0), plane_of_frame(gradient(64, 32, AVCOL_RANGE_JPEG), 0), cv::NORM_INF),
              0);
}
