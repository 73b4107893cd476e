#include "media/stitcher.h"

#include <algorithm>
#include <random>
#include <stdexcept>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "media/libavif.h"
#include "media/scaler.h"
#include "projection/angles.h"
#include "projection/lens_circle.h"
#include "projection/soavfunc.h"
#include "support/picture.h"
#include "support/run_sample.h"
#include "support/samples.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;

FramePtr random_frame(int width, int height, AVPixelFormat format, unsigned seed) {
    FramePtr frame(av_frame_alloc());
    frame->width = width;
    frame->height = height;
    frame->format = format;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    std::mt19937 random(seed);
    for (int plane = 0; plane < 3; ++plane) {
        const bool half_rows = plane > 0 && (format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P);
        const int rows = half_rows ? (height + 1) / 2 : height;
        for (int i = 0; i < rows * frame->linesize[plane]; ++i) {
            frame->data[plane][i] = static_cast<uint8_t>(random());
        }
    }
    return frame;
}

// Chroma that climbs from the top of the picture to its bottom, or falls.
FramePtr ramp_frame(int size, AVPixelFormat format) {
    FramePtr frame = random_frame(size, size, format, 1);
    const int rows = format == AV_PIX_FMT_YUV420P ? size / 2 : size;
    for (int row = 0; row < rows; ++row) {
        const int climbed = 20 + 200 * row / rows;
        std::fill_n(frame->data[1] + row * frame->linesize[1], size / 2, static_cast<uint8_t>(climbed));
        std::fill_n(frame->data[2] + row * frame->linesize[2], size / 2, static_cast<uint8_t>(255 - climbed));
    }
    return frame;
}

FramePtr empty_panorama(ImageSize size) {
    FramePtr frame(av_frame_alloc());
    frame->width = size.width;
    frame->height = size.height;
    frame->format = AV_PIX_FMT_YUV420P;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    return frame;
}

// Plane `plane` of FFmpeg's frame, with as many rows and columns as ours have.
cv::Mat plane_of(const FramePtr& frame, int plane) {
    const int divisor = plane == 0 ? 1 : 2;
    return cv::Mat(frame->height / divisor, frame->width / divisor, CV_8UC1, frame->data[plane],
                   static_cast<size_t>(frame->linesize[plane]));
}

OutputOption option_of(ImageSize panorama, ImageSize lens) {
    OutputOption option;
    option.output_size = panorama;
    option.transmap = create_equidistantmap(panorama, lens, lens.width / 2.0 - 3, 0, {0.3, -0.2, 0.1, 0.05, 0.7});
    return option;
}

FramePtr stitched(const OutputOption& option, bool many_pairs, const FramePtr& lens1, const FramePtr& lens2) {
    Stitcher stitcher(option, many_pairs);
    stitcher.load(0, lens1.get());
    stitcher.load(1, lens2.get());
    FramePtr panorama = empty_panorama(option.output_size);
    stitcher.stitch_luma(panorama.get());
    stitcher.stitch_chroma(panorama.get());
    return panorama;
}

ImageFrame stitched_plainly(OutputOption option, const FramePtr& lens1, const FramePtr& lens2) {
    ImageFrame picture1 = imageframe_from_avframe(lens1.get());
    ImageFrame picture2 = imageframe_from_avframe(lens2.get());
    avcorrect_with_map(&picture1, &option.correct1);
    avcorrect_with_map(&picture2, &option.correct2);
    ImageFrame panorama;
    convert_equirectangular_with_map(&panorama, &picture1, &picture2, &option.band, &option.transmap, 1);
    return panorama;
}

void expect_same_planes(const FramePtr& panorama, const ImageFrame& expected) {
    for (int plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(cv::norm(plane_of(panorama, plane), expected.YUVMats[static_cast<size_t>(plane)], cv::NORM_INF), 0)
            << "plane " << plane;
    }
}

ImageFrame random_band(int width, int rows) {
    ImageFrame band;
    band.frameType = FRAME_TYPE_YUV420;
    for (int plane = 0; plane < 3; ++plane) {
        const int divisor = plane == 0 ? 1 : 2;
        // The planes of a rearranged strip: twice its rows and six more.
        cv::Mat pixels(2 * (rows / divisor) + 6, width / divisor, CV_8UC1);
        cv::randu(pixels, 0, 256);
        band.YUVMats.push_back(pixels);
    }
    return band;
}

class StitcherTest : public testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(OneAndManyPairs, StitcherTest, testing::Bool());

TEST_P(StitcherTest, AgreesWithThePlainFunctionInEveryByte) {
    for (const ImageSize panorama : {ImageSize{256, 128}, ImageSize{131, 77}, ImageSize{2, 2}}) {
        const OutputOption option = option_of(panorama, {96, 96});
        const FramePtr lens1 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 1);
        const FramePtr lens2 = random_frame(96, 96, AV_PIX_FMT_YUVJ420P, 2);
        expect_same_planes(stitched(option, GetParam(), lens1, lens2), stitched_plainly(option, lens1, lens2));
    }
}

TEST_P(StitcherTest, CorrectsTheEnabledPlanesOfEachLens) {
    OutputOption option = option_of({128, 64}, {96, 96});
    option.correct1 = create_linnercorrectmap(20, CORRECT_NONE, -7);
    option.correct2 = create_linnercorrectmap(CORRECT_NONE, 300, 5);
    const FramePtr lens1 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 3);
    const FramePtr lens2 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 4);
    const FramePtr panorama = stitched(option, GetParam(), lens1, lens2);
    expect_same_planes(panorama, stitched_plainly(option, lens1, lens2));

    OutputOption uncorrected = option_of({128, 64}, {96, 96});
    const FramePtr plain = stitched(uncorrected, GetParam(), lens1, lens2);
    EXPECT_GT(cv::norm(plane_of(panorama, 0), plane_of(plain, 0), cv::NORM_INF), 0);
}

TEST_P(StitcherTest, LaysTheBandOverTheSeam) {
    OutputOption option = option_of({256, 128}, {96, 96});
    const int strip_rows = 21;  // odd: its chroma has fewer rows than half of the rearranged luma
    option.band = random_band(96, strip_rows);
    option.bandheight = 2 * strip_rows + 6;
    option.transmap = create_equidistantmap({256, 128}, {96, 96}, 45, option.bandheight, {});
    const FramePtr lens1 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 5);
    const FramePtr lens2 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 6);
    expect_same_planes(stitched(option, GetParam(), lens1, lens2), stitched_plainly(option, lens1, lens2));
}

TEST_P(StitcherTest, KeepsNothingOfTheLastPair) {
    const OutputOption option = option_of({128, 64}, {96, 96});
    const FramePtr lens1 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 7);
    const FramePtr lens2 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 8);
    Stitcher stitcher(option, GetParam());
    stitcher.load(0, lens2.get());
    stitcher.load(1, lens1.get());
    stitcher.load(0, lens1.get());
    stitcher.load(1, lens2.get());
    const FramePtr panorama = empty_panorama(option.output_size);
    stitcher.stitch_luma(panorama.get());
    stitcher.stitch_chroma(panorama.get());
    expect_same_planes(panorama, stitched_plainly(option, lens1, lens2));
}

TEST_P(StitcherTest, IsTheSameAtAnyNumberOfThreads) {
    const OutputOption option = option_of({512, 256}, {192, 192});
    const FramePtr lens1 = random_frame(192, 192, AV_PIX_FMT_YUV420P, 9);
    const FramePtr lens2 = random_frame(192, 192, AV_PIX_FMT_YUV420P, 10);
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    const FramePtr alone = stitched(option, GetParam(), lens1, lens2);
    cv::setNumThreads(2);
    const FramePtr together = stitched(option, GetParam(), lens1, lens2);
    cv::setNumThreads(threads);
    for (int plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(cv::norm(plane_of(alone, plane), plane_of(together, plane), cv::NORM_INF), 0);
    }
}

// Settings without tables have them made row by row, to the same panorama.
TEST_P(StitcherTest, MakesTheTablesThatAreNotThere) {
    const RotationCorrect rotation = {0.3, -0.2, 0.1, 0.05, 0.7};
    for (const ImageSize panorama : {ImageSize{256, 128}, ImageSize{131, 77}}) {
        OutputOption option;
        option.output_size = panorama;
        option.rotation = rotation;
        option.radius = 45.0;
        option.band = random_band(96, 21);
        option.bandheight = 48;
        OutputOption with_tables = option;
        with_tables.transmap = create_equidistantmap(panorama, {96, 96}, 45.0, 48, rotation);
        option.transmap.equsize = panorama;
        option.transmap.projsize = {96, 96};
        option.transmap.bandheight = 48;
        const FramePtr lens1 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 21);
        const FramePtr lens2 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 22);
        expect_same_planes(stitched(option, GetParam(), lens1, lens2), stitched_plainly(with_tables, lens1, lens2));
    }
}

// FFmpeg's chroma of an odd panorama has a column and a row more than the tables.
TEST_P(StitcherTest, RepeatsTheLastChromaOfAnOddSize) {
    const OutputOption option = option_of({131, 77}, {96, 96});
    const FramePtr panorama = stitched(option, GetParam(), random_frame(96, 96, AV_PIX_FMT_YUV420P, 11),
                                       random_frame(96, 96, AV_PIX_FMT_YUV420P, 12));
    for (int plane = 1; plane < 3; ++plane) {
        const cv::Mat whole(39, 66, CV_8UC1, panorama->data[plane], static_cast<size_t>(panorama->linesize[plane]));
        EXPECT_EQ(cv::norm(whole.col(65), whole.col(64), cv::NORM_INF), 0);
        EXPECT_EQ(cv::norm(whole.row(38), whole.row(37), cv::NORM_INF), 0);
    }
}

FramePtr decoded(const std::string& path) {
    libavIF media(path.c_str());
    AVFrame* frame = nullptr;
    EXPECT_EQ(media.open_input_file(0), 0);
    EXPECT_EQ(media.get_frame(&frame), 0);
    return FramePtr(frame);
}

// The settings of an export from the camera's lens pictures of `lens` pixels a side.
OutputOption camera_option(ImageSize panorama, int lens) {
    OutputOption option;
    option.output_size = panorama;
    option.rotation.yangle = kPi / 2;
    option.radius = projection_radius(lens);
    option.transmap.equsize = panorama;
    option.transmap.projsize = {lens, lens};
    return option;
}

TEST(StitcherView, APanoramaIsTheSceneSoTurned) {
    const TempDir dir;
    const Shot shot = stills_in(dir, {"--size", "1440", "--grain", "0", "--angle", "90"});
    const FramePtr lens1 = decoded(shot.one);
    const FramePtr lens2 = decoded(shot.two);
    OutputOption option = camera_option({960, 480}, 1440);
    std::mt19937 random(7);
    const auto angle = [&random] {
        return static_cast<int>(random() % 720) - 360 + static_cast<int>(random() % 8) / 8.0;
    };
    for (int triple = 0; triple < 10; ++triple) {
        const double yaw = angle(), pitch = angle(), roll = angle();
        option.view = {radians(yaw), radians(pitch), radians(roll)};
        const std::string scene = dir.file("scene.png");
        const std::string view = std::to_string(yaw) + "," + std::to_string(pitch) + "," + std::to_string(roll);
        run_sample({"dump", scene, "--width", "960", "--gray", "--view=" + view});
        const FramePtr panorama = stitched(option, triple % 2 == 0, lens1, lens2);
    }
}

// ---- Factors on the planes ----

// The middle of lens 1's half and of lens 2's, of panoramas in which lens 1 looks up.
std::array<int, 2> luma_of_halves(const FramePtr& panorama) {
    const cv::Mat luma = plane_of(panorama, 0);
    return {luma.at<uint8_t>(luma.rows / 4, luma.cols / 2), luma.at<uint8_t>(luma.rows * 3 / 4, luma.cols / 2)};
}

FramePtr flat_frame(AVPixelFormat format, AVColorRange range, int value) {
    FramePtr frame = random_frame(96, 96, format, 41);
    frame->color_range = range;
    std::fill_n(frame->data[0], frame->linesize[0] * 96, static_cast<uint8_t>(value));
    return frame;
}

TEST_P(StitcherTest, ScalesLumaByTheRangeOfEachLensesFrames) {
    OutputOption option = option_of({128, 64}, {96, 96});
    option.transmap = create_equidistantmap({128, 64}, {96, 96}, 45, 0, {});
    option.gains[0] = {1.5, 1, 1};
    option.gains[1] = {0.5, 1, 1};
    option.correct2 = create_linnercorrectmap(7, CORRECT_NONE, CORRECT_NONE);
    const FramePtr limited = flat_frame(AV_PIX_FMT_YUV420P, AVCOL_RANGE_UNSPECIFIED, 116);
    const FramePtr named_full = flat_frame(AV_PIX_FMT_YUVJ420P, AVCOL_RANGE_UNSPECIFIED, 116);
    const FramePtr marked_full = flat_frame(AV_PIX_FMT_YUV420P, AVCOL_RANGE_JPEG, 116);
    const FramePtr full_422 = flat_frame(AV_PIX_FMT_YUVJ422P, AVCOL_RANGE_UNSPECIFIED, 116);
    using Halves = std::array<int, 2>;
    EXPECT_EQ(luma_of_halves(stitched(option, GetParam(), limited, limited)), (Halves{166, 73}));
    EXPECT_EQ(luma_of_halves(stitched(option, GetParam(), named_full, limited)), (Halves{174, 73}));
    EXPECT_EQ(luma_of_halves(stitched(option, GetParam(), limited, marked_full)), (Halves{166, 65}));
    EXPECT_EQ(luma_of_halves(stitched(option, GetParam(), full_422, marked_full)), (Halves{174, 65}));

    // The range of a movie may change.
    Stitcher stitcher(option, GetParam());
    const FramePtr panorama = empty_panorama(option.output_size);
    for (const FramePtr* lens1 : {&limited, &marked_full, &limited}) {
        stitcher.load(0, lens1->get());
        stitcher.load(1, limited.get());
        stitcher.stitch_luma(panorama.get());
        EXPECT_EQ(luma_of_halves(panorama), (Halves{lens1 == &limited ? 166 : 174, 73}));
    }
}

TEST_P(StitcherTest, ScalesChromaAboutGrey) {
    OutputOption option = option_of({128, 64}, {96, 96});
    const FramePtr lens1 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 42);
    const FramePtr lens2 = random_frame(96, 96, AV_PIX_FMT_YUVJ420P, 43);
    option.gains[0] = {1, 0.5, 1};
    option.gains[1] = {1, 1, 2};
    const FramePtr panorama = stitched(option, GetParam(), lens1, lens2);
    for (int i = 0; i < 48 * lens1->linesize[1]; ++i) {
        lens1->data[1][i] = static_cast<uint8_t>(std::lround(128 + 0.5 * (lens1->data[1][i] - 128)));
    }
    for (int i = 0; i < 48 * lens2->linesize[2]; ++i) {
        lens2->data[2][i] = static_cast<uint8_t>(std::clamp(128 + 2 * (lens2->data[2][i] - 128), 0, 255));
    }
    expect_same_planes(panorama, stitched_plainly(option, lens1, lens2));
}

// ---- A panorama much smaller than the lenses' scale ----

cv::Mat reduced_by_area(const cv::Mat& large, cv::Size size) {
    cv::Mat small;
    cv::resize(large, small, size, 0, 0, cv::INTER_AREA);
    return small;
}

TEST(StitcherFilter, ReducesToTheGreatestPowerOfTwoThatLeavesTheLensesAsFine) {
    const auto reduction = [](int lens, int width) {
        OutputOption option = camera_option({width, width / 2}, lens);
        option.filter = true;
        return Stitcher::reduction_for(option);
    };
    EXPECT_EQ(reduction(3888, 7680), 1);
    EXPECT_EQ(reduction(3888, 3840), 1);  // 1.9 pixels to one
    EXPECT_EQ(reduction(3888, 3600), 2);
    EXPECT_EQ(reduction(3888, 1920), 2);
    EXPECT_EQ(reduction(3888, 1600), 4);
    EXPECT_EQ(reduction(3888, 1024), 4);
    EXPECT_EQ(reduction(3888, 512), 8);
    EXPECT_EQ(reduction(3888, 2), 8);
    EXPECT_EQ(reduction(1936, 1024), 2);
    EXPECT_EQ(reduction(1440, 1024), 2);
    EXPECT_EQ(reduction(1440, 600), 4);

    OutputOption high = camera_option({100, 1920}, 3888);  // as fine as a usual one in one direction
    high.filter = true;
    EXPECT_EQ(Stitcher::reduction_for(high), 1);
    EXPECT_EQ(Stitcher::reduction_for(camera_option({512, 256}, 3888)), 1) << "not asked for";
}

TEST(StitcherFilter, IsALargePanoramaReducedByArea) {
    const TempDir dir;
    const Shot shot = stills_in(dir, {"--size", "3888", "--angle", "90"});
    const FramePtr lens1 = decoded(shot.one);
    const FramePtr lens2 = decoded(shot.two);
    const FramePtr large = stitched(camera_option({6400, 3200}, 3888), false, lens1, lens2);
    for (const bool many_pairs : {false, true}) {
        OutputOption option = camera_option({1600, 800}, 3888);
        const FramePtr unfiltered = stitched(option, many_pairs, lens1, lens2);
        option.filter = true;
        const FramePtr panorama = stitched(option, many_pairs, lens1, lens2);
        for (int plane = 0; plane < 3; ++plane) {
            const cv::Mat filtered = plane_of(panorama, plane);
            const cv::Mat expected = reduced_by_area(plane_of(large, plane), filtered.size());
            EXPECT_GT(psnr(filtered, expected), 34) << plane;
            EXPECT_GT(psnr(filtered, expected), psnr(plane_of(unfiltered, plane), expected) + 5) << plane;
        }
    }
}

TEST(StitcherFilter, LeavesPanoramasOfTheLensesScaleAsTheyAre) {
    OutputOption option = camera_option({2880, 1440}, 1440);
    const FramePtr lens1 = random_frame(1440, 1440, AV_PIX_FMT_YUV420P, 31);
    const FramePtr lens2 = random_frame(1440, 1440, AV_PIX_FMT_YUV420P, 32);
    const FramePtr plain = stitched(option, false, lens1, lens2);
    option.filter = true;
    const FramePtr filtered = stitched(option, false, lens1, lens2);
    for (int plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(cv::norm(plane_of(plain, plane), plane_of(filtered, plane), cv::NORM_INF), 0);
    }
}

// A shot that is looked at again keeps small frames: reduced elsewhere, they give the same bytes.
TEST(StitcherFilter, TakesFramesThatAreReducedAlready) {
    OutputOption option = camera_option({256, 128}, 1440);
    option.filter = true;
    option.correct2 = create_linnercorrectmap(20, -4, CORRECT_NONE);
    const int k = Stitcher::reduction_for(option);
    ASSERT_EQ(k, 8);
    for (const AVPixelFormat format : {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV422P}) {
        const FramePtr lens1 = random_frame(1440, 1440, format, 33);
        const FramePtr lens2 = random_frame(1440, 1440, format, 34);
        lens1->color_range = AVCOL_RANGE_JPEG;
        const FramePtr small1 = reduced_frame(lens1.get(), k);
        const FramePtr small2 = reduced_frame(lens2.get(), k);
        EXPECT_EQ(small1->width, 180);
        EXPECT_EQ(small1->height, 180);
        EXPECT_EQ(small1->color_range, AVCOL_RANGE_JPEG);
        EXPECT_EQ(small1->format, format == AV_PIX_FMT_YUVJ420P ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P);
        const FramePtr here = stitched(option, false, lens1, lens2);
        const FramePtr elsewhere = stitched(option, false, small1, small2);
        for (int plane = 0; plane < 3; ++plane) {
            EXPECT_EQ(cv::norm(plane_of(here, plane), plane_of(elsewhere, plane), cv::NORM_INF), 0) << plane;
        }
    }
}

TEST(StitcherFilter, TakesAllChromaRowsOf422) {
    OutputOption option = camera_option({256, 128}, 1440);
    option.filter = true;
    const FramePtr tall = ramp_frame(1440, AV_PIX_FMT_YUV422P);
    const FramePtr expected = ramp_frame(1440, AV_PIX_FMT_YUV420P);
    const FramePtr panorama = stitched(option, false, tall, tall);
    const FramePtr plain = stitched(option, false, expected, expected);
    for (int plane = 1; plane < 3; ++plane) {
        EXPECT_LE(cv::norm(plane_of(panorama, plane), plane_of(plain, plane), cv::NORM_INF), 1) << plane;
    }
}

TEST(StitcherFilter, LeavesAFrameThatCannotBeReduced) {
    const FramePtr other = random_frame(64, 64, AV_PIX_FMT_YUV444P, 35);
    EXPECT_EQ(reduced_frame(other.get(), 4)->data[0], other->data[0]);
    const FramePtr odd = random_frame(66, 64, AV_PIX_FMT_YUV420P, 36);
    EXPECT_EQ(reduced_frame(odd.get(), 4)->data[0], odd->data[0]);
    EXPECT_EQ(reduced_frame(odd.get(), 1)->data[0], odd->data[0]);
    OutputOption option = camera_option({256, 128}, 1440);
    option.filter = true;
    Stitcher stitcher(option, false);
    EXPECT_THROW(stitcher.load(0, other.get()), std::runtime_error);
    EXPECT_THROW(stitcher.load(0, random_frame(360, 360, AV_PIX_FMT_YUV420P, 37).get()), std::runtime_error);
}

// A band of two colours, a step at its ends and between its halves.
ImageFrame two_coloured_band(int width, int rows) {
    ImageFrame band;
    band.frameType = FRAME_TYPE_YUV420;
    for (int plane = 0; plane < 3; ++plane) {
        const int divisor = plane == 0 ? 1 : 2;
        const int half = rows / divisor + 3;
        cv::Mat pixels(2 * half, width / divisor, CV_8UC1, cv::Scalar(60));
        pixels.rowRange(half, 2 * half).setTo(200);
        band.YUVMats.push_back(pixels);
    }
    return band;
}

TEST(StitcherFilter, KeepsTheBandOverTheSeam) {
    const FramePtr lens1 = random_frame(1440, 1440, AV_PIX_FMT_YUV420P, 38);
    for (int plane = 0; plane < 3; ++plane) {  // grey, so that nothing but the band differs
        std::fill_n(lens1->data[plane], lens1->linesize[plane] * (plane == 0 ? 1440 : 720), static_cast<uint8_t>(120));
    }
    const auto panorama = [&](ImageSize size, bool filter) {
        OutputOption option = camera_option(size, 1440);
        option.filter = filter;
        option.band = two_coloured_band(1440, 121);
        option.bandheight = option.transmap.bandheight = option.band.YUVMats[0].rows;
        return stitched(option, false, lens1, lens1);
    };
    const FramePtr large = panorama({2400, 1200}, false);
    const FramePtr small = panorama({600, 300}, true);
    for (int plane = 0; plane < 3; ++plane) {
        const cv::Mat filtered = plane_of(small, plane);
        const cv::Mat expected = reduced_by_area(plane_of(large, plane), filtered.size());
        // The border of the band is as sharp as the panorama: a pixel may be on either side of it.
        EXPECT_GT(psnr(filtered, expected), 30) << plane;
        EXPECT_EQ(cv::countNonZero(filtered < 60), 0) << plane;
        EXPECT_GT(cv::countNonZero(filtered == 60), filtered.total() / 60) << plane;
        EXPECT_GT(cv::countNonZero(filtered == 200), filtered.total() / 60) << plane;
    }
}

// ---- The mixed ring about the seam ----

// A lens that shows one colour up to so many degrees from its axis, and black beyond.
FramePtr lens_frame(int size, double degrees, std::array<int, 3> colour) {
    FramePtr frame(make_frame({size, size, AV_PIX_FMT_YUV420P}));
    for (int plane = 0; plane < 3; ++plane) {
        const int side = plane == 0 ? size : size / 2;
        const double reach = projection_radius(size) * side / size * degrees / 90;
        for (int y = 0; y < side; ++y) {
            for (int x = 0; x < side; ++x) {
                const bool lit = std::hypot(x - side / 2, y - side / 2) <= reach;
                frame->data[plane][y * frame->linesize[plane] + x] =
                    static_cast<uint8_t>(lit          ? colour[static_cast<size_t>(plane)]
                                         : plane == 0 ? 16
                                                      : 128);
            }
        }
    }
    return frame;
}

// Lens 1 looks up, so that the ring is rows about the middle one.
OutputOption feather_option(double degrees, ImageSize panorama = {720, 360}, int lens = 1440) {
    OutputOption option = camera_option(panorama, lens);
    option.rotation.yangle = 0;
    option.feather = radians(degrees);
    return option;
}

double smooth(double t) {
    return t * t * (3 - 2 * t);
}

TEST_P(StitcherTest, MixesBothLensesAboutTheSeam) {
    const OutputOption option = feather_option(5);
    const FramePtr lens1 = lens_frame(1440, 96.5, {60, 70, 180});
    const FramePtr lens2 = lens_frame(1440, 96.5, {180, 110, 90});
    const FramePtr panorama = stitched(option, GetParam(), lens1, lens2);
    for (int plane = 0; plane < 3; ++plane) {
        const cv::Mat pixels = plane_of(panorama, plane);
        const double row_angle = plane == 0 ? 0.5 : 1;  // degrees
        const int first = lens1->data[plane][lens1->linesize[plane] * pixels.rows + pixels.rows];
        const int second = lens2->data[plane][lens2->linesize[plane] * pixels.rows + pixels.rows];
        for (int y = 0; y < pixels.rows; ++y) {
            const double from_seam = (y - pixels.rows / 2) * row_angle;
            const double share2 = smooth(std::clamp(0.5 + from_seam / 10, 0.0, 1.0));
            for (const int x : {0, 1, pixels.cols / 3, pixels.cols - 1}) {
                ASSERT_NEAR(pixels.at<uint8_t>(y, x), first + share2 * (second - first), 1.01) << plane << ": " << y;
            }
        }
        EXPECT_EQ(pixels.at<uint8_t>(pixels.rows / 2, 5), (first + second) / 2) << "on the seam";
    }
}

TEST(StitcherFeather, IsTheSameForOneAndManyPairs) {
    OutputOption option = feather_option(3);
    option.rotation = {0.3, -0.2, 0.1, 0.05, 0.7};
    option.view = {0.4, 0.5, 0.6};
    const FramePtr lens1 = random_frame(1440, 1440, AV_PIX_FMT_YUV420P, 51);
    const FramePtr lens2 = random_frame(1440, 1440, AV_PIX_FMT_YUV420P, 52);
    const FramePtr once = stitched(option, false, lens1, lens2);
    const FramePtr kept = stitched(option, true, lens1, lens2);
    option.feather = 0;
    const FramePtr hard = stitched(option, true, lens1, lens2);
    for (int plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(cv::norm(plane_of(once, plane), plane_of(kept, plane), cv::NORM_INF), 0);
        EXPECT_GT(cv::norm(plane_of(once, plane), plane_of(hard, plane), cv::NORM_INF), 0);
    }
}

// Wherever the lens pictures end, no black of theirs is mixed in.
TEST_P(StitcherTest, MixesNothingOfWhatALensDoesNotShow) {
    for (const double field : {90.6, 91.0, 92.0, 93.5, 95.0}) {
        const FramePtr lens1 = lens_frame(1440, 96.5, {120, 100, 150});
        const FramePtr lens2 = lens_frame(1440, field, {120, 100, 150});
        for (const bool filter : {false, true}) {
            OutputOption option = feather_option(5.5);
            option.filter = filter;
            const FramePtr panorama = stitched(option, GetParam(), lens1, lens2);
            EXPECT_EQ(cv::countNonZero(plane_of(panorama, 0) != 120), 0) << field;
            EXPECT_EQ(cv::countNonZero(plane_of(panorama, 1) != 100), 0) << field;
            EXPECT_EQ(cv::countNonZero(plane_of(panorama, 2) != 150), 0) << field;
        }
    }
}

// As the camera's pictures would be if they ended at the hemisphere.
TEST_P(StitcherTest, LeavesTheSeamOfLensesThatDoNotOverlap) {
    const FramePtr lens1 = lens_frame(1440, 90.2, {60, 70, 180});
    const FramePtr lens2 = lens_frame(1440, 90.2, {180, 110, 90});
    const FramePtr feathered = stitched(feather_option(5.5), GetParam(), lens1, lens2);
    const FramePtr hard = stitched(feather_option(0), GetParam(), lens1, lens2);
    for (int plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(cv::norm(plane_of(feathered, plane), plane_of(hard, plane), cv::NORM_INF), 0);
    }
}

// Corrections lift the black beyond the pictures, too.
TEST_P(StitcherTest, KnowsTheBlackBeyondCorrectedPictures) {
    OutputOption option = feather_option(5.5);
    option.correct1 = create_linnercorrectmap(40, CORRECT_NONE, CORRECT_NONE);
    option.gains[1] = {1.5, 1, 1};
    option.correct2 = create_linnercorrectmap(30, CORRECT_NONE, CORRECT_NONE);
    const FramePtr lens1 = lens_frame(1440, 92, {156, 128, 128});
    const FramePtr lens2 = lens_frame(1440, 92, {116, 128, 128});
    EXPECT_EQ(cv::countNonZero(plane_of(stitched(option, GetParam(), lens1, lens2), 0) != 196), 0);
}

// A movie that begins in the dark tells later how far its lenses see.
TEST_P(StitcherTest, LearnsHowFarTheLensesSeeFromTheFirstLitPair) {
    const OutputOption option = feather_option(5.5);
    const FramePtr dark = lens_frame(1440, 91, {20, 128, 128});
    const FramePtr lit = lens_frame(1440, 91, {120, 128, 128});
    Stitcher stitcher(option, GetParam());
    const FramePtr panorama = empty_panorama(option.output_size);
    for (const FramePtr* lens : {&dark, &lit, &dark, &lit}) {
        stitcher.load(0, lens->get());
        stitcher.load(1, lens->get());
        stitcher.stitch_chroma(panorama.get());
        stitcher.stitch_luma(panorama.get());
        if (lens == &lit) {
            EXPECT_EQ(cv::countNonZero(plane_of(panorama, 0) != 120), 0);
        }
    }
}

TEST_P(StitcherTest, TheBandWinsOverTheMixedRing) {
    OutputOption option = feather_option(5);
    const int strip_rows = 2 * 1440 / 180;  // two degrees, one on each side
    option.band = random_band(1440, strip_rows);
    option.bandheight = option.transmap.bandheight = 2 * strip_rows + 6;
    const FramePtr lens1 = lens_frame(1440, 96.5, {60, 70, 180});
    const FramePtr lens2 = lens_frame(1440, 96.5, {180, 110, 90});
    const FramePtr feathered = stitched(option, GetParam(), lens1, lens2);
    option.feather = 0;
    const FramePtr hard = stitched(option, GetParam(), lens1, lens2);
    for (int plane = 0; plane < 3; ++plane) {
        const cv::Mat mixed = plane_of(feathered, plane);
        const int middle = mixed.rows / 2;
        const int degree = mixed.rows / 180;
        const auto rows = [&](const FramePtr& frame, int from, int to) {
            return plane_of(frame, plane).rowRange(middle + from, middle + to);
        };
        EXPECT_EQ(cv::norm(rows(feathered, 1 - degree, degree), rows(hard, 1 - degree, degree), cv::NORM_INF), 0);
        EXPECT_GT(
            cv::norm(rows(feathered, degree + 1, 2 * degree + 1), rows(hard, degree + 1, 2 * degree + 1), cv::NORM_INF),
            0);
    }
}

TEST(StitcherFeather, ClosesAStepThatTheLensesLeave) {
    const TempDir dir;
    const Shot shot = stills_in(dir, {"--size", "1440", "--grain", "0", "--difference=24,-10,8"});
    const FramePtr lens1 = decoded(shot.one);
    const FramePtr lens2 = decoded(shot.two);
    const auto step = [&](double feather) {
        const FramePtr panorama = stitched(feather_option(feather, {1440, 720}), false, lens1, lens2);
        const cv::Mat luma = plane_of(panorama, 0);
        return cv::mean(luma.row(360))[0] - cv::mean(luma.row(359))[0];
    };
    EXPECT_GT(step(0), 22);
    EXPECT_LT(step(1.5), 6);
}

TEST(StitcherFormats, TakesTheSecondLensIn422OfAnotherSizeScaledToTheFirst) {
    const OutputOption option = option_of({128, 64}, {96, 96});
    Stitcher stitcher(option, false);
    stitcher.load(0, random_frame(96, 96, AV_PIX_FMT_YUV420P, 13).get());
    EXPECT_NO_THROW(stitcher.load(1, random_frame(48, 80, AV_PIX_FMT_YUVJ422P, 14).get()));
}

// Full range is not squeezed: both names of 4:2:2 are read alike.
TEST(StitcherFormats, ReadsBothKindsOf422Alike) {
    const OutputOption option = option_of({128, 64}, {96, 96});
    const FramePtr lens1 = random_frame(96, 96, AV_PIX_FMT_YUV422P, 15);
    FramePtr full_range(av_frame_clone(lens1.get()));
    full_range->format = AV_PIX_FMT_YUVJ422P;
    const FramePtr lens2 = random_frame(96, 96, AV_PIX_FMT_YUV420P, 16);
    const FramePtr limited = stitched(option, false, lens1, lens2);
    const FramePtr full = stitched(option, false, full_range, lens2);
    for (int plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(cv::norm(plane_of(limited, plane), plane_of(full, plane), cv::NORM_INF), 0);
    }
}

// 4:2:2 has a row of chroma for each of luma; taken for 4:2:0 the upper half would stand for the whole.
TEST_P(StitcherTest, TakesAllChromaRowsOf422) {
    const OutputOption option = option_of({256, 128}, {96, 96});
    const FramePtr tall = ramp_frame(96, AV_PIX_FMT_YUV422P);
    const FramePtr expected = ramp_frame(96, AV_PIX_FMT_YUV420P);
    const FramePtr panorama = stitched(option, GetParam(), tall, tall);
    const FramePtr plain = stitched(option, GetParam(), expected, expected);
    EXPECT_EQ(cv::norm(plane_of(panorama, 0), plane_of(plain, 0), cv::NORM_INF), 0);
    for (int plane = 1; plane < 3; ++plane) {
        EXPECT_LE(cv::norm(plane_of(panorama, plane), plane_of(plain, plane), cv::NORM_INF), 3) << plane;
    }
}

TEST(StitcherFormats, RefusesAnotherSizeOrFormatWithAText) {
    const OutputOption option = option_of({128, 64}, {96, 96});
    Stitcher stitcher(option, false);
    try {
        stitcher.load(0, random_frame(96, 94, AV_PIX_FMT_YUV420P, 17).get());
        FAIL() << "a frame of another size was taken";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "input 1 has a frame of 96x94 where 96x96 was expected");
    }
    EXPECT_THROW(stitcher.load(0, random_frame(96, 94, AV_PIX_FMT_YUV422P, 18).get()), std::runtime_error);
    EXPECT_THROW(stitcher.load(1, random_frame(98, 96, AV_PIX_FMT_YUV420P, 19).get()), std::runtime_error);
    EXPECT_THROW(stitcher.load(1, random_frame(96, 96, AV_PIX_FMT_YUV444P, 20).get()), std::runtime_error);
}

}  // namespace
