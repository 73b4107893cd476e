#include "projection/soavfunc.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "projection/parallel.h"
#include "projection/plane_mapper.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr double kPi = 3.14159265358979323846;

// ---- Assertions ----

// What a failed assertion prints but for its line.
std::string report(const std::string& expression, const std::string& function) {
    return "Assertion failed: (" + expression + "), function " + function + ", file src/soavfunc, line ";
}

#define EXPECT_ASSERTION(statement, expression, function) \
    EXPECT_EXIT(statement, testing::KilledBySignal(SIGABRT), HasSubstr(report(expression, function)))

class DeathTest : public testing::Test {
  protected:
    // OpenCV's threads do not survive a plain fork.
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

using RgbmatDeathTest = DeathTest;
using CreateEquidistantmapDeathTest = DeathTest;
using ConvertEquirectangularDeathTest = DeathTest;
using AvcorrectDeathTest = DeathTest;
using ImageframeFromAvframeDeathTest = DeathTest;

// ---- Pictures ----

using PixelValue = std::function<int(int x, int y)>;

cv::Mat make_plane(int rows, int cols, const PixelValue& value) {
    cv::Mat plane(rows, cols, CV_8UC1);
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < cols; ++x) {
            plane.at<uint8_t>(y, x) = static_cast<uint8_t>(value(x, y));
        }
    }
    return plane;
}

PixelValue constant(int value) {
    return [value](int, int) { return value; };
}

ImageFrame make_frame(int width, int height, int y, int u, int v) {
    return {{make_plane(height, width, constant(y)), make_plane(height / 2, width / 2, constant(u)),
             make_plane(height / 2, width / 2, constant(v))},
            FRAME_TYPE_YUV420};
}

std::vector<int> values(const cv::Mat& plane) {
    std::vector<int> result;
    for (int y = 0; y < plane.rows; ++y) {
        for (int x = 0; x < plane.cols; ++x) {
            result.push_back(plane.at<uint8_t>(y, x));
        }
    }
    return result;
}

// ---- RGB ----

TEST(RgbmatFromImageframe, NeutralChromaIsGrey) {
    const cv::Mat rgb = rgbmat_from_imageframe(make_frame(6, 4, 77, 128, 128));
    ASSERT_EQ(rgb.type(), CV_8UC3);
    ASSERT_EQ(rgb.size(), cv::Size(6, 4));
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 6; ++x) {
            EXPECT_EQ(rgb.at<cv::Vec3b>(y, x), cv::Vec3b(77, 77, 77));
        }
    }
}

TEST(RgbmatFromImageframe, RedComesFirst) {
    const cv::Vec3b reddish = rgbmat_from_imageframe(make_frame(4, 4, 100, 128, 178)).at<cv::Vec3b>(1, 1);
    EXPECT_NEAR(reddish[0], 100 + 1.14 * 50, 1);
    EXPECT_NEAR(reddish[2], 100, 1);
    const cv::Vec3b bluish = rgbmat_from_imageframe(make_frame(4, 4, 100, 158, 128)).at<cv::Vec3b>(1, 1);
    EXPECT_NEAR(bluish[0], 100, 1);
    EXPECT_NEAR(bluish[2], 100 + 2.03 * 30, 1);
}

TEST(RgbmatFromImageframe, FullSizeChromaGivesTheSameSize) {
    ImageFrame frame = make_frame(6, 4, 50, 128, 128);
    frame.YUVMats[1] = make_plane(4, 6, constant(128));
    frame.YUVMats[2] = make_plane(4, 6, [](int x, int) { return x == 5 ? 178 : 128; });
    const cv::Mat rgb = rgbmat_from_imageframe(frame);
    ASSERT_EQ(rgb.size(), cv::Size(6, 4));
    // Not blurred by scaling: the neighbour of the coloured column is grey.
    EXPECT_EQ(rgb.at<cv::Vec3b>(2, 4), cv::Vec3b(50, 50, 50));
    EXPECT_NEAR(rgb.at<cv::Vec3b>(2, 5)[0], 50 + 1.14 * 50, 1);
}

TEST_F(RgbmatDeathTest, RefusesAFrameThatIsNotLoaded) {
    EXPECT_ASSERTION(rgbmat_from_imageframe(ImageFrame()), "imageframe.frameType != FRAME_TYPE_NOTLOAD",
                     "rgbmat_from_imageframe");
}

TEST_F(RgbmatDeathTest, RefusesAFrameWithoutThreePlanes) {
    ImageFrame frame = make_frame(4, 4, 1, 2, 3);
    frame.YUVMats.pop_back();
    EXPECT_ASSERTION(rgbmat_from_imageframe(frame), "imageframe.YUVMats.size() == 3", "rgbmat_from_imageframe");
}

// ---- Decoder frames ----

// A decoder's frame over memory of its own, with spare bytes of 255 at the end of each row.
class DecodedFrame {
  public:
    DecodedFrame(int width, int height, int format, int chroma_rows, int spare) : frame_(av_frame_alloc()) {
        frame_->width = width;
        frame_->height = height;
        frame_->format = format;
        add_plane(0, width, height, spare);
        add_plane(1, (width + 1) / 2, chroma_rows, spare + 1);
        add_plane(2, (width + 1) / 2, chroma_rows, spare + 2);
    }
    ~DecodedFrame() { av_frame_free(&frame_); }
    DecodedFrame(const DecodedFrame&) = delete;
    DecodedFrame& operator=(const DecodedFrame&) = delete;

    AVFrame* get() { return frame_; }

    // Every pixel is told from its neighbours, and each plane from the others.
    static int pixel(int plane, int x, int y) { return plane * 80 + y * 8 + x; }

  private:
    void add_plane(int i, int cols, int rows, int spare) {
        const int linesize = cols + spare;
        memory_[i].assign(static_cast<size_t>(linesize) * rows, 255);
        for (int y = 0; y < rows; ++y) {
            for (int x = 0; x < cols; ++x) {
                memory_[i][y * linesize + x] = static_cast<uint8_t>(pixel(i, x, y));
            }
        }
        frame_->data[i] = memory_[i].data();
        frame_->linesize[i] = linesize;
    }

    AVFrame* frame_;
    std::vector<uint8_t> memory_[3];
};

void expect_pixels(const ImageFrame& image, int plane, int cols, int rows) {
    const cv::Mat& mat = image.YUVMats[plane];
    EXPECT_EQ(mat.size(), cv::Size(cols, rows));
    EXPECT_EQ(mat.type(), CV_8UC1);
    EXPECT_TRUE(mat.isContinuous());
    EXPECT_EQ(values(mat),
              values(make_plane(rows, cols, [plane](int x, int y) { return DecodedFrame::pixel(plane, x, y); })));
}

TEST(ImageframeFromAvframe, LeavesOutTheSpareBytesOfEachRow) {
    for (const int format : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P}) {
        DecodedFrame frame(6, 4, format, 2, 10);
        const ImageFrame image = imageframe_from_avframe(frame.get());
        EXPECT_EQ(image.frameType, FRAME_TYPE_YUV420);
        ASSERT_EQ(image.YUVMats.size(), 3u);
        expect_pixels(image, 0, 6, 4);
        expect_pixels(image, 1, 3, 2);
        expect_pixels(image, 2, 3, 2);
    }
}

TEST(ImageframeFromAvframe, OddSizesHaveTheLowerHalfOfChroma) {
    DecodedFrame frame(7, 5, AV_PIX_FMT_YUV420P, 3, 0);
    const ImageFrame image = imageframe_from_avframe(frame.get());
    ASSERT_EQ(image.YUVMats.size(), 3u);
    expect_pixels(image, 0, 7, 5);
    expect_pixels(image, 1, 3, 2);
    expect_pixels(image, 2, 3, 2);
}

TEST(ImageframeFromAvframe, Of422TakesTheUpperHalfOfTheChromaRows) {
    for (const int format : {AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUVJ422P}) {
        DecodedFrame frame(6, 4, format, 4, 2);
        const ImageFrame image = imageframe_from_avframe(frame.get());
        EXPECT_EQ(image.frameType, FRAME_TYPE_YUV420);
        ASSERT_EQ(image.YUVMats.size(), 3u);
        expect_pixels(image, 1, 3, 2);
        expect_pixels(image, 2, 3, 2);
    }
}

TEST(ImageframeFromAvframe, OwnsItsPixels) {
    DecodedFrame frame(4, 4, AV_PIX_FMT_YUV420P, 2, 0);
    const ImageFrame image = imageframe_from_avframe(frame.get());
    std::memset(frame.get()->data[0], 0, 16);
    std::memset(frame.get()->data[1], 0, 4);
    expect_pixels(image, 0, 4, 4);
    expect_pixels(image, 1, 2, 2);
}

TEST(ImageframeFromAvframe, AnEmptyPlaneGivesAFrameThatIsNotLoaded) {
    DecodedFrame one_column(1, 4, AV_PIX_FMT_YUV420P, 2, 0);
    DecodedFrame one_row(4, 1, AV_PIX_FMT_YUV420P, 1, 0);
    DecodedFrame nothing(0, 0, AV_PIX_FMT_YUV420P, 0, 0);
    for (DecodedFrame* frame : {&one_column, &one_row, &nothing}) {
        const ImageFrame image = imageframe_from_avframe(frame->get());
        EXPECT_EQ(image.frameType, FRAME_TYPE_NOTLOAD);
        EXPECT_TRUE(image.YUVMats.empty());
    }
}

TEST_F(ImageframeFromAvframeDeathTest, RefusesOtherFormatsWithAFixedLine) {
    for (const int format : {AV_PIX_FMT_YUV444P, AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P10LE, AV_PIX_FMT_NONE}) {
        DecodedFrame frame(4, 4, format, 4, 0);
        EXPECT_EXIT(imageframe_from_avframe(frame.get()), testing::KilledBySignal(SIGABRT),
                    HasSubstr("Assertion failed: (frame->format == AV_PIX_FMT_YUVJ420P || frame->format == "
                              "AV_PIX_FMT_YUV420P || frame->format == AV_PIX_FMT_YUVJ422P || frame->format == "
                              "AV_PIX_FMT_YUV422P), function imageframe_from_avframe, file src/soavfunc, line 208.\n"));
    }
}

// ---- Source positions, checked by hand ----

struct UV {
    double u, v;
};

// A panorama of 3840 x 1920 out of 1936-pixel pictures: centre (968, 968), circle of 907 pixels.
constexpr ImageSize kPanorama{3840, 1920};
constexpr ImageSize kPicture{1936, 1936};
constexpr double kCenter = 968, kRadius = 907, kHeight = 1936;

UV source_of(int x, int y, RotationCorrect rc, int bandheight = 0) {
    UV point{};
    uvpoint_from_equidistantxypoint(&point.u, &point.v, x, y, kPanorama, kPicture, {968, 968}, 907, bandheight,
                                    rc.frame1angle, rc.frame2angle, rc.xangle, rc.zangle, rc.yangle);
    return point;
}

void expect_near(UV point, double u, double v) {
    EXPECT_NEAR(point.u, u, 1e-8);
    EXPECT_NEAR(point.v, v, 1e-8);
}

TEST(UvpointFromEquidistantxypoint, WithoutAnglesLens1LooksUp) {
    expect_near(source_of(0, 0, {}), kCenter, kCenter);
    expect_near(source_of(1234, 0, {}), kCenter, kCenter);
    // Half-way to the horizon in the middle column: below the centre of circle 1.
    expect_near(source_of(1920, 480, {}), kCenter, kCenter + kRadius / 2);
    // Three quarters across: right of it.
    expect_near(source_of(2880, 480, {}), kCenter + kRadius / 2, kCenter);
    expect_near(source_of(960, 480, {}), kCenter - kRadius / 2, kCenter);
}

TEST(UvpointFromEquidistantxypoint, Lens2IsMirrored) {
    expect_near(source_of(1920, 1440, {}), kCenter, kHeight + kCenter + kRadius / 2);
    expect_near(source_of(2880, 1440, {}), kCenter - kRadius / 2, kHeight + kCenter);
    expect_near(source_of(960, 1440, {}), kCenter + kRadius / 2, kHeight + kCenter);
}

// 64 rows, of which row 32 has a colatitude of exactly half pi.
TEST(UvpointFromEquidistantxypoint, TheSeamBelongsToLens2) {
    for (const int x : {1, 31, 64, 100}) {
        UV seam{}, above{};
        uvpoint_from_equidistantxypoint(&seam.u, &seam.v, x, 32, {128, 64}, {50, 50}, {25, 25}, 20, 0, 0, 0, 0, 0, 0);
        uvpoint_from_equidistantxypoint(&above.u, &above.v, x, 31, {128, 64}, {50, 50}, {25, 25}, 20, 0, 0, 0, 0, 0, 0);
        EXPECT_NEAR(std::hypot(seam.u - 25, seam.v - 75), 20, 1e-12);
        EXPECT_LT(above.v, 50);
    }
    UV middle{};
    uvpoint_from_equidistantxypoint(&middle.u, &middle.v, 64, 32, {128, 64}, {50, 50}, {25, 25}, 20, 0, 0, 0, 0, 0, 0);
    EXPECT_NEAR(middle.u, 25, 1e-12);
    EXPECT_NEAR(middle.v, 25 + 20 + 50, 1e-12);
}

TEST(UvpointFromEquidistantxypoint, TheThirdAngleTurnsTheLensesToTheHorizon) {
    expect_near(source_of(1920, 960, {0, 0, 0, 0, kPi / 2}), kCenter, kHeight + kCenter);
    expect_near(source_of(0, 960, {0, 0, 0, 0, kPi / 2}), kCenter, kCenter);
    expect_near(source_of(1920, 960, {0, 0, 0, 0, -kPi / 2}), kCenter, kCenter);
    // Half-way up from the middle: half-way from the axis of the lens in the middle to its edge.
    expect_near(source_of(1920, 480, {0, 0, 0, 0, kPi / 2}), kCenter, kHeight + kCenter + kRadius / 2);
    expect_near(source_of(1920, 480, {0, 0, 0, 0, -kPi / 2}), kCenter, kCenter - kRadius / 2);
}

TEST(UvpointFromEquidistantxypoint, TheXAngleTurnsTheSphereAboutX) {
    // Rx(90 degrees) takes y to z: three quarters across the horizon comes to the axis of lens 1.
    expect_near(source_of(2880, 960, {0, 0, kPi / 2, 0, 0}), kCenter, kCenter);
    expect_near(source_of(960, 960, {0, 0, kPi / 2, 0, 0}), kCenter, kHeight + kCenter);
}

TEST(UvpointFromEquidistantxypoint, TheZAngleTurnsTheSphereAboutZ) {
    // Rz(90 degrees) takes x to y: the middle column is where three quarters across was.
    expect_near(source_of(1920, 480, {0, 0, 0, kPi / 2, 0}), kCenter + kRadius / 2, kCenter);
    expect_near(source_of(1920, 1440, {0, 0, 0, kPi / 2, 0}), kCenter - kRadius / 2, kHeight + kCenter);
}

TEST(UvpointFromEquidistantxypoint, TheYTurnComesBeforeTheXTurnAndTheZTurn) {
    // Half-way up from the middle stands (1, 0, 1) / sqrt(2). Ry by 90 degrees takes it to (1, 0, -1) / sqrt(2), Rx
    // by 135 degrees that to (sqrt(1/2), 1/2, 1/2), 60 degrees from the axis, Rz by 90 degrees that to
    // (-1/2, sqrt(1/2), 1/2).
    const UV point = source_of(1920, 480, {0, 0, 3 * kPi / 4, 0, kPi / 2});
    const UV turned = source_of(1920, 480, {0, 0, 3 * kPi / 4, kPi / 2, kPi / 2});
    const double distance = kRadius * 2 / 3;
    const double cosine = std::sqrt(1.0 / 3), sine = std::sqrt(2.0 / 3);
    expect_near(point, kCenter + cosine * distance, kCenter + sine * distance);
    expect_near(turned, kCenter + sine * distance, kCenter - cosine * distance);
}

TEST(UvpointFromEquidistantxypoint, EachPictureHasItsOwnTurn) {
    const RotationCorrect first{kPi / 2, 0, 0, 0, 0}, second{0, kPi / 2, 0, 0, 0};
    expect_near(source_of(1920, 480, first), kCenter - kRadius / 2, kCenter);
    expect_near(source_of(1920, 1440, first), kCenter, kHeight + kCenter + kRadius / 2);
    expect_near(source_of(1920, 480, second), kCenter, kCenter + kRadius / 2);
    expect_near(source_of(1920, 1440, second), kCenter + kRadius / 2, kHeight + kCenter);
}

// A band of 200 rows, 406 rearranged: it covers 200 * 180 / 1936 degrees about the seam, half above, half below.
TEST(UvpointFromEquidistantxypoint, TheBandCoversTheSeam) {
    const int bandheight = 406;
    // On the seam: the middle of the band's rows. Its columns run from the panorama's left edge to the right one.
    expect_near(source_of(120, 960, {}, bandheight), kHeight / 16, 2 * kHeight + 2 + 100);
    expect_near(source_of(960, 960, {}, bandheight), kHeight / 2, 2 * kHeight + 2 + 100);
    // From the middle on the right half, whose rows begin after the left half and four edge rows.
    expect_near(source_of(2040, 960, {}, bandheight), kHeight / 16, 2 * kHeight + 200 + 4 + 100);
    expect_near(source_of(2880, 960, {}, bandheight), kHeight / 2, 2 * kHeight + 200 + 4 + 100);
    // A row of the panorama is 180 / 1920 degrees, a row of the band 180 / 1936.
    expect_near(source_of(960, 970, {}, bandheight), kHeight / 2, 2 * kHeight + 2 + 100 + 10 * kHeight / 1920);
    // 99 rows of the panorama lie within its half height, 100 do not.
    EXPECT_GT(source_of(0, 960 - 99, {}, bandheight).v, 2 * kHeight);
    EXPECT_LT(source_of(0, 960 - 100, {}, bandheight).v, kHeight);
    EXPECT_GT(source_of(0, 960 + 99, {}, bandheight).v, 2 * kHeight);
    EXPECT_LT(source_of(0, 960 + 100, {}, bandheight).v, 2 * kHeight);
}

TEST(UvpointFromEquidistantxypoint, TheBandsLastColumnIsNotLeftBehind) {
    // 3872 columns of the band on 3840: the last one would be 3870.99 and 1934.99 in its half, in reach; with
    // 15488 columns of panorama it would lie past the half's last pixel.
    UV point{};
    uvpoint_from_equidistantxypoint(&point.u, &point.v, 15487, 3872, {15488, 7744}, kPicture, {968, 968}, 907, 406, 0,
                                    0, 0, 0, 0);
    EXPECT_NEAR(point.u, 1935, 1e-9);
    uvpoint_from_equidistantxypoint(&point.u, &point.v, 7743, 3872, {15488, 7744}, kPicture, {968, 968}, 907, 406, 0, 0,
                                    0, 0, 0);
    EXPECT_NEAR(point.u, 1935, 1e-9);
}

TEST(UvpointFromEquidistantxypoint, ABandOfFewerThanSixRowsCoversNothing) {
    for (int bandheight = 1; bandheight < 6; ++bandheight) {
        for (const int y : {959, 960, 961}) {
            const UV with = source_of(1000, y, {}, bandheight), without = source_of(1000, y, {});
            EXPECT_EQ(with.u, without.u);
            EXPECT_EQ(with.v, without.v);
        }
    }
}

// ---- The tables against a plain evaluation of the formulas ----

struct MapSetting {
    ImageSize equsize;
    ImageSize projsize;
    double projradius;
    int bandheight;
    RotationCorrect rc;
    ViewTurn view;
    double offset;
};

// For the names of the test cases.
void PrintTo(const MapSetting& s, std::ostream* out) {
    *out << s.equsize.width << "x" << s.equsize.height << " from " << s.projsize.width << "x" << s.projsize.height
         << " r " << s.projradius << " band " << s.bandheight << " turns " << s.rc.frame1angle << ", "
         << s.rc.frame2angle << " x " << s.rc.xangle << " z " << s.rc.zangle << " y " << s.rc.yangle << " view "
         << s.view.yaw << ", " << s.view.pitch << ", " << s.view.roll << " offset " << s.offset;
}

// One plane's sizes.
struct PlaneSetting {
    int cols, rows;  // of the panorama
    double W, H, r;  // of a lens picture and its circle
    double center_x, center_y;
    double band;
};

PlaneSetting luma_of(const MapSetting& s) {
    return {s.equsize.width,
            s.equsize.height,
            double(s.projsize.width),
            double(s.projsize.height),
            std::floor(s.projradius),
            std::floor(s.projsize.width / 2.0),
            std::floor(s.projsize.height / 2.0),
            double(s.bandheight)};
}

PlaneSetting chroma_of(const MapSetting& s) {
    const PlaneSetting luma = luma_of(s);
    return {luma.cols / 2,
            luma.rows / 2,
            std::floor(luma.W / 2),
            std::floor(luma.H / 2),
            std::floor(s.projradius / 2),
            std::floor(luma.center_x / 2),
            std::floor(luma.center_y / 2),
            std::trunc((luma.band - 6) * 0.5 + 6)};
}

// What comes to lie at p when the look is turned: the last turn, about the look, is undone first.
cv::Vec3d before_turn(const cv::Vec3d& p, const ViewTurn& view) {
    const double sr = std::sin(view.roll), cr = std::cos(view.roll);
    const cv::Vec3d level(p[0], cr * p[1] - sr * p[2], sr * p[1] + cr * p[2]);
    const double sp = std::sin(view.pitch), cp = std::cos(view.pitch);
    const cv::Vec3d flat(cp * level[0] - sp * level[2], level[1], sp * level[0] + cp * level[2]);
    const double sy = std::sin(view.yaw), cy = std::cos(view.yaw);
    return {cy * flat[0] - sy * flat[1], sy * flat[0] + cy * flat[1], flat[2]};
}

UV plain_source(const PlaneSetting& s, const RotationCorrect& rc, const ViewTurn& view, double x, double y) {
    const double lambda = x * 2 * kPi / s.cols - kPi;
    const double theta = y * kPi / s.rows;
    const cv::Vec3d p = before_turn(
        {s.r * (std::sin(theta) * std::cos(lambda)), s.r * (std::sin(theta) * std::sin(lambda)), s.r * std::cos(theta)},
        view);
    const double px = p[0], py = p[1], pz = p[2];

    const double sx = std::sin(rc.xangle), sy = std::sin(rc.yangle), sz = std::sin(rc.zangle);
    const double cx = std::cos(rc.xangle), cy = std::cos(rc.yangle), cz = std::cos(rc.zangle);
    const double qx = (cz * cy - sx * sz * sy) * px - sz * cx * py + (cz * sy + sx * sz * cy) * pz;
    const double qy = (cz * sx * sy + sz * cy) * px + cz * cx * py + (sz * sy - cz * cy * sx) * pz;
    const double qz = -sy * cx * px + sx * py + cy * cx * pz;

    const double phi = std::acos(std::clamp(qz / s.r, -1.0, 1.0));
    const double psi = std::atan2(qx, qy);

    const double h = (s.band - 6) * 0.5;
    const double delta = kPi * h / s.W * 0.5;
    if (s.band > 0 && kPi / 2 - delta < phi && phi < kPi / 2 + delta) {
        double U = (3 * kPi / 2 - psi) * s.W / kPi;
        U = U > 2 * s.W ? U - 2 * s.W : U;
        const double V0 = s.H * (phi - (kPi / 2 - delta)) / kPi;
        if (U < s.W) {
            return {std::min(s.W - 1, U), 2 * s.H + V0 + 2};
        }
        return {std::min(2 * s.W - 1, U) - s.W, 2 * s.H + V0 + h + 4};
    }
    const double k = s.r / (kPi / 2);
    if (phi < kPi / 2) {
        const double rho = phi * k;
        return {s.center_x + std::cos(psi + rc.frame1angle) * rho, s.center_y + std::sin(psi + rc.frame1angle) * rho};
    }
    const double rho = (kPi - phi) * k;
    const double a = psi - kPi / 2 + rc.frame2angle;
    return {s.center_x + std::sin(a) * rho, s.center_y + std::cos(a) * rho + s.H};
}

struct Disagreement {
    int64_t entries = 0;
    int64_t one_ulp = 0;
    int64_t more = 0;
};

Disagreement compare(const cv::Mat& mapx, const cv::Mat& mapy, const PlaneSetting& s, const RotationCorrect& rc,
                     const ViewTurn& view, double offset) {
    std::atomic<int64_t> one_ulp{0}, more{0};
    const auto compare_entry = [&](float actual, double expected_exactly) {
        const float expected = static_cast<float>(expected_exactly);
        if (actual == expected || (std::isnan(actual) && std::isnan(expected))) {
            return;
        }
        ++(std::nextafter(expected, actual) == actual ? one_ulp : more);
    };
    in_parallel(s.rows, [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            for (int x = 0; x < s.cols; ++x) {
                const UV expected = plain_source(s, rc, view, x + offset, y + offset);
                compare_entry(mapx.at<float>(y, x), expected.u);
                compare_entry(mapy.at<float>(y, x), expected.v);
            }
        }
    });
    return {2 * int64_t{s.rows} * s.cols, one_ulp, more};
}

void expect_agreement(const cv::Mat& mapx, const cv::Mat& mapy, const PlaneSetting& s, const RotationCorrect& rc,
                      const ViewTurn& view, double offset) {
    for (const cv::Mat& map : {mapx, mapy}) {
        ASSERT_EQ(map.type(), CV_32FC1);
        ASSERT_EQ(map.size(), cv::Size(s.cols, s.rows));
    }
    const Disagreement found = compare(mapx, mapy, s, rc, view, offset);
    EXPECT_EQ(found.more, 0);
    EXPECT_LE(found.one_ulp * 1000000, found.entries);
}

class MapAgreementTest : public testing::TestWithParam<MapSetting> {};

TEST_P(MapAgreementTest, EveryEntryOfAllFourTables) {
    const MapSetting& s = GetParam();
    const EquidistantTransMap map = create_equidistantmap(s.equsize, s.projsize, s.projradius, s.bandheight, s.rc);
    expect_agreement(map.ymapx, map.ymapy, luma_of(s), s.rc, {}, 0);
    expect_agreement(map.uvmapx, map.uvmapy, chroma_of(s), s.rc, {}, 0);
}

// The whole tables of a mapper.
struct Tables {
    explicit Tables(const PlaneMapper& mapper)
        : x(mapper.size().height, mapper.size().width, CV_32FC1), y(x.size(), CV_32FC1) {
        for (int row = 0; row < x.rows; ++row) {
            mapper.map_row(row, x.ptr<float>(row), y.ptr<float>(row));
        }
    }

    cv::Mat x;
    cv::Mat y;
};

TEST_P(MapAgreementTest, EveryEntryOfATurnedLookBetweenThePixels) {
    const MapSetting& s = GetParam();
    const Tables luma(luma_mapper(s.equsize, s.projsize, s.projradius, s.bandheight, s.rc, s.view, s.offset));
    const Tables chroma(chroma_mapper(s.equsize, s.projsize, s.projradius, s.bandheight, s.rc, s.view, s.offset));
    expect_agreement(luma.x, luma.y, luma_of(s), s.rc, s.view, s.offset);
    expect_agreement(chroma.x, chroma.y, chroma_of(s), s.rc, s.view, s.offset);
}

// Settings drawn from a fixed seed; mt19937's numbers, unlike the distributions, are the same in every library.
class SettingDraw {
  public:
    explicit SettingDraw(uint32_t seed) : random_(seed) {}

    int whole(int low, int high) { return low + static_cast<int>(random_() % (high - low + 1u)); }
    double real(double low, double high) { return low + (high - low) * (random_() / 4294967296.0); }
    double quarter_turns() { return whole(-3, 3) * kPi / 2; }
    double angle() { return real(-kPi, kPi); }

    MapSetting setting() {
        const ImageSize projsize{whole(40, 1200), whole(40, 1200)};
        const double largest = std::min(projsize.width, projsize.height) / 2.0;
        const int rows = whole(1, 150);
        return {{whole(2, 900), whole(2, 600)},
                projsize,
                real(0.3, 0.999) * largest,
                // None, fewer than a rearranged band can have, and bands of even and odd height.
                whole(0, 2) == 0 ? whole(0, 5) : 2 * rows + 6,
                {angle(), angle(), angle(), angle(), angle()},
                {},
                0};
    }

  private:
    std::mt19937 random_;
};

// The camera's three picture sizes, the common angles and what lies between; then the seeded ones.
std::vector<MapSetting> map_settings() {
    const double quarter = kPi / 2;
    std::vector<MapSetting> settings = {
        {{3840, 1920}, {1936, 1936}, 907, 0, {0, 0, 0, 0, 0}, {}, 0},
        {{2000, 1000}, {3888, 3888}, 1821, 0, {quarter, -quarter, 0, 0, quarter}, {}, 0},
        {{1920, 960}, {1440, 1440}, 675, 206, {2 * quarter, 0, 0, 0, -quarter}, {}, 0},
        // An odd band height, and odd sizes throughout.
        {{1501, 751}, {1936, 1936}, 907, 2 * 33 + 6, {-quarter, 3 * quarter, 0, 0, 30 * kPi / 180}, {}, 0},
        {{777, 333}, {401, 411}, 200.4, 2 * 7 + 6, {0.1, -0.2, 0.3, -0.4, 0.5}, {}, 0},
        {{1000, 500}, {1936, 1936}, 907, 1, {0, 0, 0, 0, quarter}, {}, 0},
        {{1000, 500}, {1440, 1440}, 675, 5, {quarter, quarter, 0.7, 0, 0}, {}, 0},
        // A circle that touches the edge of an odd picture, where columns near 0 come out of a cancellation.
        {{1024, 512}, {11, 11}, 5.4, 0, {0, quarter, 0, 0, 0}, {}, 0},
        // A band so high that nothing is left for the lenses.
        {{640, 320}, {100, 100}, 45, 2 * 120 + 6, {0, 0, 0.2, 0, 0.1}, {}, 0},
        // Angles of many turns, whose sums with the azimuth lose digits.
        {{800, 400}, {500, 500}, 240, 0, {2e6, 1, 300, -400, 500}, {}, 0},
        {{800, 400}, {500, 500}, 240, 0, {-1, -3e6, 0, 0, 500}, {}, 0},
        // A circle of one pixel, of which chroma has nothing left: no direction is defined there.
        {{50, 20}, {9, 9}, 1.5, 0, {0, 0, 0, 0, 0}, {}, 0},
    };
    SettingDraw draw(20240229);
    while (settings.size() < 34) {
        settings.push_back(draw.setting());
        if (settings.size() % 3 == 0) {
            settings.back().rc.frame1angle = draw.quarter_turns();
            settings.back().rc.frame2angle = draw.quarter_turns();
        }
        if (settings.size() % 5 == 0) {
            settings.back().rc.yangle = draw.quarter_turns();
        }
    }
    // No quarter turns: they bring the seam onto pixels, where rounding says which lens it is.
    for (MapSetting& setting : settings) {
        setting.view = {draw.angle(), draw.angle(), draw.angle()};
        setting.offset = draw.whole(0, 1) * draw.real(0, 0.5);
    }
    settings[0].view = {draw.angle(), 0, 0};
    settings[1].view = {0, draw.angle(), 0};
    settings[2].view = {0, 0, draw.angle()};
    return settings;
}

INSTANTIATE_TEST_SUITE_P(Settings, MapAgreementTest, testing::ValuesIn(map_settings()),
                         [](const auto& setting) { return std::to_string(setting.index); });

// ---- The tables as a whole ----

std::vector<float> entries(const cv::Mat& table) {
    return std::vector<float>(table.ptr<float>(0), table.ptr<float>(0) + table.total());
}

bool same_tables(const EquidistantTransMap& a, const EquidistantTransMap& b) {
    return entries(a.ymapx) == entries(b.ymapx) && entries(a.ymapy) == entries(b.ymapy) &&
           entries(a.uvmapx) == entries(b.uvmapx) && entries(a.uvmapy) == entries(b.uvmapy);
}

TEST(CreateEquidistantmap, StoresWhatItWasGiven) {
    const EquidistantTransMap map = create_equidistantmap({64, 32}, {50, 40}, 19, 12, {});
    EXPECT_EQ(map.equsize.width, 64);
    EXPECT_EQ(map.equsize.height, 32);
    EXPECT_EQ(map.projsize.width, 50);
    EXPECT_EQ(map.projsize.height, 40);
    EXPECT_EQ(map.bandheight, 12);
}

TEST(CreateEquidistantmap, TheTopLeftPixelIsTheCentreOfCircle1) {
    const EquidistantTransMap map = create_equidistantmap(kPanorama, kPicture, kRadius, 0, {});
    EXPECT_EQ(map.ymapx.at<float>(0, 0), 968.0f);
    EXPECT_EQ(map.ymapy.at<float>(0, 0), 968.0f);
    EXPECT_EQ(map.uvmapx.at<float>(0, 0), 484.0f);
    EXPECT_EQ(map.uvmapy.at<float>(0, 0), 484.0f);
}

TEST(CreateEquidistantmap, WithoutABandSourcesStayInTheCircles) {
    const EquidistantTransMap map = create_equidistantmap({1001, 503}, kPicture, kRadius, 0, {1, 2, 3, 4, 5});
    for (int y = 0; y < map.ymapx.rows; ++y) {
        for (int x = 0; x < map.ymapx.cols; ++x) {
            const double u = map.ymapx.at<float>(y, x), v = map.ymapy.at<float>(y, x);
            const double center_v = v < kHeight ? kCenter : kCenter + kHeight;
            ASSERT_LE(std::hypot(u - kCenter, v - center_v), kRadius + 1e-3) << x << ", " << y;
        }
    }
}

// Rounding takes the cosine of one or two pixels past 1 at each of these angles.
TEST(CreateEquidistantmap, NoEntryIsNotANumber) {
    for (const int degrees : {9, 15, 36, 60, 75}) {
        const EquidistantTransMap map =
            create_equidistantmap(kPanorama, kPicture, kRadius, 0, {0, 0, 0, 0, degrees * kPi / 180});
        for (const cv::Mat& table : {map.ymapx, map.ymapy, map.uvmapx, map.uvmapy}) {
            const std::vector<float> all = entries(table);
            EXPECT_TRUE(std::none_of(all.begin(), all.end(), [](float f) { return std::isnan(f); })) << degrees;
        }
    }
}

TEST(CreateEquidistantmap, IsTheSameAtAnyNumberOfThreads) {
    const RotationCorrect rc{0.3, -0.2, 0.1, 0.4, 0.5};
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    const EquidistantTransMap alone = create_equidistantmap({601, 301}, {400, 400}, 190, 46, rc);
    for (const int number : {2, 3, 7}) {
        cv::setNumThreads(number);
        EXPECT_TRUE(same_tables(alone, create_equidistantmap({601, 301}, {400, 400}, 190, 46, rc))) << number;
    }
    cv::setNumThreads(threads);
}

TEST(CreateEquidistantmap, ABandOfFewerThanSixRowsChangesNothing) {
    const EquidistantTransMap none = create_equidistantmap({300, 150}, {400, 400}, 190, 0, {});
    for (int bandheight = 1; bandheight < 6; ++bandheight) {
        EXPECT_TRUE(same_tables(none, create_equidistantmap({300, 150}, {400, 400}, 190, bandheight, {})));
    }
}

TEST(CreateEquidistantmap, ChromaOfAnOddBandFollowsTheFormulaNotThePlane) {
    // 33 rows, 72 rearranged. The rearranged chroma plane has 2 * 16 + 6 rows, but half heights of 16.5 are used:
    // on the seam the left half's sources lie at 2 + 8.25 and the right half's at 4 + 16.5 + 8.25.
    const EquidistantTransMap map = create_equidistantmap({400, 200}, {400, 400}, 190, 72, {});
    EXPECT_FLOAT_EQ(map.uvmapy.at<float>(50, 50), 400 + 2 + 8.25f);
    EXPECT_FLOAT_EQ(map.uvmapy.at<float>(50, 150), 400 + 4 + 16.5f + 8.25f);
}

TEST(CreateEquidistantmap, APanoramaOfOnePixelASideHasNoChromaTables) {
    const EquidistantTransMap column = create_equidistantmap({1, 10}, {40, 40}, 19, 0, {});
    EXPECT_EQ(column.ymapx.size(), cv::Size(1, 10));
    EXPECT_TRUE(column.uvmapx.empty());
    EXPECT_EQ(column.uvmapx.cols, 0);
    const EquidistantTransMap row = create_equidistantmap({10, 1}, {40, 40}, 19, 0, {});
    EXPECT_EQ(row.ymapx.size(), cv::Size(10, 1));
    EXPECT_TRUE(row.uvmapy.empty());
    EXPECT_EQ(row.uvmapy.rows, 0);
}

TEST(CreateEquidistantmap, CopiesShareTheTablesAndMovesTakeThem) {
    EquidistantTransMap map = create_equidistantmap({64, 32}, {50, 40}, 19, 0, {});
    const EquidistantTransMap copy = map;
    EXPECT_EQ(copy.ymapx.data, map.ymapx.data);
    const EquidistantTransMap moved = std::move(map);
    EXPECT_EQ(moved.ymapx.data, copy.ymapx.data);
    EXPECT_TRUE(map.ymapx.empty());
}

const char* const kSizeText = "equsize.width > 0 && equsize.height > 0";
const char* const kPictureText = "projsize.width > 0 && projsize.height > 0";
const char* const kRadiusText =
    "projradius > 0 && projradius < projsize.width / 2.0 && projradius < projsize.height / 2.0";

TEST_F(CreateEquidistantmapDeathTest, RefusesSizesThatAreNotPositive) {
    // The first broken condition is the one that is reported.
    EXPECT_ASSERTION(create_equidistantmap({0, 10}, {0, 0}, 0, 0, {}), kSizeText, "create_equidistantmap");
    EXPECT_ASSERTION(create_equidistantmap({10, -1}, {40, 40}, 19, 0, {}), kSizeText, "create_equidistantmap");
    EXPECT_ASSERTION(create_equidistantmap({10, 10}, {0, 40}, 0, 0, {}), kPictureText, "create_equidistantmap");
    EXPECT_ASSERTION(create_equidistantmap({10, 10}, {40, -40}, 19, 0, {}), kPictureText, "create_equidistantmap");
}

TEST_F(CreateEquidistantmapDeathTest, RefusesARadiusThatDoesNotFit) {
    EXPECT_ASSERTION(create_equidistantmap({10, 10}, {40, 40}, 0, 0, {}), kRadiusText, "create_equidistantmap");
    EXPECT_ASSERTION(create_equidistantmap({10, 10}, {40, 60}, 20, 0, {}), kRadiusText, "create_equidistantmap");
    EXPECT_ASSERTION(create_equidistantmap({10, 10}, {60, 40}, 20, 0, {}), kRadiusText, "create_equidistantmap");
    EXPECT_ASSERTION(create_equidistantmap({10, 10}, {40, 40}, NAN, 0, {}), kRadiusText, "create_equidistantmap");
    // Odd widths are halved without rounding.
    EXPECT_EQ(create_equidistantmap({10, 10}, {41, 41}, 20.4, 0, {}).ymapx.cols, 10);
}

// ---- Stitching ----

// Tables of one row that sample the given source rows, all of column 1.
EquidistantTransMap rows_map(ImageSize projsize, const std::vector<float>& luma, const std::vector<float>& chroma) {
    EquidistantTransMap map;
    map.projsize = projsize;
    map.equsize = {static_cast<int>(luma.size()), 1};
    map.ymapx = cv::Mat(1, static_cast<int>(luma.size()), CV_32FC1, cv::Scalar(1));
    map.ymapy = cv::Mat(luma, true).reshape(1, 1);
    map.uvmapx = cv::Mat(1, static_cast<int>(chroma.size()), CV_32FC1, cv::Scalar(1));
    map.uvmapy = cv::Mat(chroma, true).reshape(1, 1);
    return map;
}

TEST(ConvertEquirectangular, StacksLens1Lens2AndTheBand) {
    ImageFrame lens1 = make_frame(8, 6, 10, 11, 12), lens2 = make_frame(8, 6, 20, 21, 22);
    ImageFrame band = make_frame(8, 10, 30, 31, 32);
    // Luma stacks 6 + 6 + 10 rows, chroma 3 + 3 + 5.
    EquidistantTransMap map = rows_map({8, 6}, {0, 5, 6, 11, 12, 21}, {2, 3, 5, 6, 10});
    map.bandheight = 10;
    ImageFrame out;
    convert_equirectangular_with_map(&out, &lens1, &lens2, &band, &map, cv::INTER_LINEAR);
    EXPECT_EQ(out.frameType, FRAME_TYPE_YUV420);
    ASSERT_EQ(out.YUVMats.size(), 3u);
    EXPECT_THAT(values(out.YUVMats[0]), ElementsAre(10, 10, 20, 20, 30, 30));
    EXPECT_THAT(values(out.YUVMats[1]), ElementsAre(11, 21, 21, 31, 31));
    EXPECT_THAT(values(out.YUVMats[2]), ElementsAre(12, 22, 22, 32, 32));
    for (const cv::Mat& plane : out.YUVMats) {
        EXPECT_TRUE(plane.isContinuous());
    }
}

TEST(ConvertEquirectangular, WithoutABandTheStackIsTheTwoPictures) {
    ImageFrame lens1 = make_frame(8, 6, 10, 11, 12), lens2 = make_frame(8, 6, 20, 21, 22), none;
    EquidistantTransMap map = rows_map({8, 6}, {11, 12, 13}, {5, 6, 7});
    ImageFrame out;
    convert_equirectangular_with_map(&out, &lens1, &lens2, &none, &map, cv::INTER_NEAREST);
    EXPECT_THAT(values(out.YUVMats[0]), ElementsAre(20, 0, 0));
    EXPECT_THAT(values(out.YUVMats[1]), ElementsAre(21, 0, 0));
    EXPECT_THAT(values(out.YUVMats[2]), ElementsAre(22, 0, 0));
}

TEST(ConvertEquirectangular, ALoadedBandIsStackedWhateverTheBandheight) {
    ImageFrame lens1 = make_frame(8, 6, 10, 11, 12), lens2 = make_frame(8, 6, 20, 21, 22);
    ImageFrame band = make_frame(8, 10, 30, 31, 32);
    EquidistantTransMap map = rows_map({8, 6}, {12}, {6});
    ImageFrame out;
    convert_equirectangular_with_map(&out, &lens1, &lens2, &band, &map, cv::INTER_NEAREST);
    EXPECT_THAT(values(out.YUVMats[0]), ElementsAre(30));

    ImageFrame wider = make_frame(10, 10, 30, 31, 32), other;
    EXPECT_THROW(convert_equirectangular_with_map(&other, &lens1, &lens2, &wider, &map, cv::INTER_NEAREST),
                 cv::Exception);
}

TEST(ConvertEquirectangular, TheInterpolationIsTheCallers) {
    ImageFrame lens1 = make_frame(8, 6, 10, 11, 12), lens2 = make_frame(8, 6, 20, 21, 22), none;
    EquidistantTransMap map = rows_map({8, 6}, {5.5f}, {2.25f});
    ImageFrame linear, nearest;
    convert_equirectangular_with_map(&linear, &lens1, &lens2, &none, &map, cv::INTER_LINEAR);
    EXPECT_THAT(values(linear.YUVMats[0]), ElementsAre(15));
    convert_equirectangular_with_map(&nearest, &lens1, &lens2, &none, &map, cv::INTER_NEAREST);
    EXPECT_THAT(values(nearest.YUVMats[1]), ElementsAre(11));
}

TEST(ConvertEquirectangular, FullSizeChromaUsesTheLumaTables) {
    const auto full_size = static_cast<ImageFrameType>(2);
    const auto make = [&](int value) {
        return ImageFrame{{make_plane(6, 8, constant(value)), make_plane(6, 8, constant(value + 1)),
                           make_plane(6, 8, constant(value + 2))},
                          full_size};
    };
    ImageFrame lens1 = make(10), lens2 = make(20), none, out;
    EquidistantTransMap map = rows_map({8, 6}, {5, 6, 11}, {0});
    convert_equirectangular_with_map(&out, &lens1, &lens2, &none, &map, cv::INTER_LINEAR);
    EXPECT_EQ(out.frameType, full_size);
    EXPECT_THAT(values(out.YUVMats[0]), ElementsAre(10, 20, 20));
    EXPECT_THAT(values(out.YUVMats[1]), ElementsAre(11, 21, 21));
    EXPECT_THAT(values(out.YUVMats[2]), ElementsAre(12, 22, 22));
}

TEST(ConvertEquirectangular, AnOutputThatIsNotEmptyEndsUpWithSixPlanes) {
    ImageFrame lens1 = make_frame(8, 6, 10, 11, 12), lens2 = make_frame(8, 6, 20, 21, 22), none, out;
    EquidistantTransMap map = rows_map({8, 6}, {0}, {0});
    convert_equirectangular_with_map(&out, &lens1, &lens2, &none, &map, cv::INTER_LINEAR);
    convert_equirectangular_with_map(&out, &lens2, &lens1, &none, &map, cv::INTER_LINEAR);
    ASSERT_EQ(out.YUVMats.size(), 6u);
    EXPECT_THAT(values(out.YUVMats[0]), ElementsAre(10));
    EXPECT_THAT(values(out.YUVMats[3]), ElementsAre(20));
}

TEST(ConvertEquirectangular, SplitsThePanoramaAtTheSeam) {
    ImageFrame lens1 = make_frame(40, 40, 10, 11, 12), lens2 = make_frame(40, 40, 20, 21, 22), none, out;
    EquidistantTransMap map = create_equidistantmap({80, 40}, {40, 40}, 18, 0, {});
    convert_equirectangular_with_map(&out, &lens1, &lens2, &none, &map, cv::INTER_LINEAR);
    ASSERT_EQ(out.YUVMats[0].size(), cv::Size(80, 40));
    ASSERT_EQ(out.YUVMats[1].size(), cv::Size(40, 20));
    EXPECT_THAT(values(out.YUVMats[0].rowRange(0, 20)), testing::Each(10));
    EXPECT_THAT(values(out.YUVMats[0].rowRange(20, 40)), testing::Each(20));
    EXPECT_THAT(values(out.YUVMats[1].rowRange(0, 10)), testing::Each(11));
    EXPECT_THAT(values(out.YUVMats[2].rowRange(10, 20)), testing::Each(22));
}

const char* const kLoadedText =
    "frame->frameType != FRAME_TYPE_NOTLOAD && frame2->frameType != FRAME_TYPE_NOTLOAD && (transmap->bandheight == 0 "
    "|| transmap->bandheight > 0 && bandImage->frameType != FRAME_TYPE_NOTLOAD)";
const char* const kTypesText =
    "frame->frameType == frame2->frameType && (transmap->bandheight == 0 || transmap->bandheight > 0 && "
    "frame->frameType == bandImage->frameType)";
const char* const kSizesText =
    "frame->YUVMats.size() == 3 && transmap->projsize.width == frame->YUVMats[0].cols && transmap->projsize.height == "
    "frame->YUVMats[0].rows && frame2->YUVMats.size() == 3 && transmap->projsize.width == frame2->YUVMats[0].cols && "
    "transmap->projsize.height == frame2->YUVMats[0].rows";
const char* const kBandText =
    "transmap->bandheight == 0 || (transmap->bandheight > 0 && bandImage->YUVMats.size() == 3 && "
    "transmap->projsize.width == bandImage->YUVMats[0].cols && bandImage->YUVMats[0].rows == transmap->bandheight)";

// A job whose preconditions hold; each test breaks one.
struct StitchJob {
    ImageFrame lens1 = make_frame(8, 6, 10, 11, 12), lens2 = make_frame(8, 6, 20, 21, 22);
    ImageFrame band = make_frame(8, 10, 30, 31, 32), out;
    EquidistantTransMap map = rows_map({8, 6}, {0}, {0});

    StitchJob() { map.bandheight = 10; }
    void run() { convert_equirectangular_with_map(&out, &lens1, &lens2, &band, &map, cv::INTER_LINEAR); }
};

#define EXPECT_STITCH_ASSERTION(job, text) EXPECT_ASSERTION((job).run(), text, "convert_equirectangular_with_map")

TEST_F(ConvertEquirectangularDeathTest, RefusesPicturesThatAreNotLoaded) {
    StitchJob first, second, band, negative;
    first.lens1 = ImageFrame();
    EXPECT_STITCH_ASSERTION(first, kLoadedText);
    second.lens2.frameType = FRAME_TYPE_NOTLOAD;
    EXPECT_STITCH_ASSERTION(second, kLoadedText);
    band.band = ImageFrame();
    EXPECT_STITCH_ASSERTION(band, kLoadedText);
    negative.map.bandheight = -1;
    EXPECT_STITCH_ASSERTION(negative, kLoadedText);
}

TEST_F(ConvertEquirectangularDeathTest, RefusesPicturesOfDifferentTypes) {
    StitchJob lenses, band;
    lenses.lens2.frameType = static_cast<ImageFrameType>(2);
    EXPECT_STITCH_ASSERTION(lenses, kTypesText);
    band.band.frameType = static_cast<ImageFrameType>(2);
    EXPECT_STITCH_ASSERTION(band, kTypesText);
}

TEST_F(ConvertEquirectangularDeathTest, RefusesPicturesOfOtherSizesThanTheTables) {
    StitchJob planes, width, height, planes2, width2, height2;
    planes.lens1.YUVMats.pop_back();
    EXPECT_STITCH_ASSERTION(planes, kSizesText);
    width.lens1 = make_frame(10, 6, 1, 2, 3);
    EXPECT_STITCH_ASSERTION(width, kSizesText);
    height.lens1 = make_frame(8, 8, 1, 2, 3);
    EXPECT_STITCH_ASSERTION(height, kSizesText);
    planes2.lens2.YUVMats.clear();
    EXPECT_STITCH_ASSERTION(planes2, kSizesText);
    width2.lens2 = make_frame(6, 6, 1, 2, 3);
    EXPECT_STITCH_ASSERTION(width2, kSizesText);
    height2.lens2 = make_frame(8, 4, 1, 2, 3);
    EXPECT_STITCH_ASSERTION(height2, kSizesText);
}

TEST_F(ConvertEquirectangularDeathTest, RefusesABandOfAnotherSizeThanTheTables) {
    StitchJob rows, width, planes;
    rows.map.bandheight = 12;
    EXPECT_STITCH_ASSERTION(rows, kBandText);
    width.band = make_frame(10, 10, 1, 2, 3);
    EXPECT_STITCH_ASSERTION(width, kBandText);
    planes.band.YUVMats.pop_back();
    EXPECT_STITCH_ASSERTION(planes, kBandText);
}

// ---- Correction ----

TEST(AvcorrectWithMap, EveryCombinationOfPlanes) {
    for (int planes = 0; planes < 8; ++planes) {
        const bool y = planes & 1, u = planes & 2, v = planes & 4;
        YuvCorrectMap map =
            create_linnercorrectmap(y ? 5 : CORRECT_NONE, u ? -6 : CORRECT_NONE, v ? 300 : CORRECT_NONE);
        ImageFrame frame = make_frame(7, 5, 100, 110, 120);
        avcorrect_with_map(&frame, &map);
        EXPECT_THAT(values(frame.YUVMats[0]), testing::Each(y ? 105 : 100)) << planes;
        EXPECT_THAT(values(frame.YUVMats[1]), testing::Each(u ? 104 : 110)) << planes;
        EXPECT_THAT(values(frame.YUVMats[2]), testing::Each(v ? 255 : 120)) << planes;
    }
}

TEST(AvcorrectWithMap, EveryPixelGoesThroughTheTable) {
    YuvCorrectMap map = {};
    map.yenabled = 1;
    for (int k = 0; k < 256; ++k) {
        map.ytable[k] = static_cast<uint8_t>(255 - k);
    }
    ImageFrame frame = make_frame(16, 16, 0, 0, 0);
    frame.YUVMats[0] = make_plane(16, 16, [](int x, int y) { return y * 16 + x; });
    avcorrect_with_map(&frame, &map);
    EXPECT_EQ(values(frame.YUVMats[0]), values(make_plane(16, 16, [](int x, int y) { return 255 - (y * 16 + x); })));
}

TEST(AvcorrectWithMap, ChangesThePixelsThatCopiesShare) {
    ImageFrame frame = make_frame(4, 4, 100, 110, 120);
    const ImageFrame copy = frame;
    YuvCorrectMap map = create_linnercorrectmap(1, CORRECT_NONE, CORRECT_NONE);
    avcorrect_with_map(&frame, &map);
    EXPECT_THAT(values(copy.YUVMats[0]), testing::Each(101));
}

TEST(AvcorrectWithMap, APlaneWithoutRowsIsPassedOver) {
    ImageFrame frame = make_frame(4, 1, 100, 110, 120);
    ASSERT_EQ(frame.YUVMats[1].rows, 0);
    YuvCorrectMap map = create_linnercorrectmap(1, 1, 1);
    avcorrect_with_map(&frame, &map);
    EXPECT_THAT(values(frame.YUVMats[0]), testing::Each(101));
}

const char* const kPlanesText =
    "frame->YUVMats.size() == 3 && frame->YUVMats[0].cols > 0 && frame->YUVMats[0].rows > 0";

TEST_F(AvcorrectDeathTest, RefusesAFrameThatIsNotLoaded) {
    ImageFrame frame;
    YuvCorrectMap map = {};
    EXPECT_ASSERTION(avcorrect_with_map(&frame, &map), "frame->frameType != FRAME_TYPE_NOTLOAD", "avcorrect_with_map");
}

TEST_F(AvcorrectDeathTest, RefusesAFrameWithoutPixelsEvenWhenNothingIsToBeDone) {
    YuvCorrectMap map = {};
    ImageFrame two_planes = make_frame(4, 4, 1, 2, 3), no_columns = make_frame(0, 4, 1, 2, 3),
               no_rows = make_frame(4, 0, 1, 2, 3);
    two_planes.YUVMats.pop_back();
    for (ImageFrame* frame : {&two_planes, &no_columns, &no_rows}) {
        EXPECT_ASSERTION(avcorrect_with_map(frame, &map), kPlanesText, "avcorrect_with_map");
    }
}

}  // namespace
