#include "media/open_shot.h"

#include <filesystem>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "media/lens_file.h"
#include "media/scaler.h"
#include "media/stitcher.h"
#include "sample/frame_code.h"
#include "support/codes.h"
#include "support/media.h"
#include "support/samples.h"

using namespace test_support;
using testing::HasSubstr;
using testing::Pair;

namespace {

int number_of(const AVFrame* frame) {
    const sample::LumaView view{frame->data[0], frame->width, frame->height, frame->linesize[0]};
    const auto code = sample::read_lens_code(view);
    return code ? code->number : -1;
}

OutputOption option_of(ImageSize panorama) {
    OutputOption option;
    option.output_size = panorama;
    option.radius = 675;
    option.transmap.equsize = panorama;
    option.transmap.projsize = {1440, 1440};
    option.filter = true;
    return option;
}

class OpenShotTest : public testing::Test {
  protected:
    OpenShot movies(const std::vector<std::string>& more = {}) {
        std::vector<std::string> options = {"--size", "1440", "--frames", "12", "--key-frames", "4"};
        options.insert(options.end(), more.begin(), more.end());
        files = movies_in(dir, options);
        return OpenShot(files.one.c_str(), files.two.c_str());
    }
    OpenShot stills() {
        files = stills_in(dir, {"--size", "1440", "--code", "77"});
        return OpenShot(files.one.c_str(), files.two.c_str());
    }
    void remove_files() {
        std::filesystem::remove(files.one);
        std::filesystem::remove(files.two);
    }

    TempDir dir;
    Shot files;
};

}  // namespace

TEST_F(OpenShotTest, GoesToTheFramesAtEitherTime) {
    OpenShot shot = movies();
    EXPECT_EQ(shot.frame(0), nullptr);
    shot.go_to(0, 5 * kFrameSeconds);
    EXPECT_EQ(number_of(shot.frame(0)), 0);
    EXPECT_EQ(number_of(shot.frame(1)), 5);
    shot.go_to(3 * kFrameSeconds, 5 * kFrameSeconds);
    EXPECT_EQ(number_of(shot.frame(0)), 3);
    EXPECT_EQ(number_of(shot.frame(1)), 5);
}

TEST_F(OpenShotTest, FramesThatAreHereAreNotReadAgain) {
    OpenShot movie_shot = movies();
    movie_shot.go_to(0.1, 0.2);
    remove_files();
    movie_shot.go_to(0.1, 0.2);
    EXPECT_THROW(movie_shot.go_to(0.1, 0.3), UnreadableFile);
    EXPECT_EQ(number_of(movie_shot.frame(1)), 6) << "what was here stays";

    OpenShot still_shot = stills();
    still_shot.go_to(0, 0);
    remove_files();
    still_shot.go_to(4, 5);
    EXPECT_EQ(number_of(still_shot.frame(0)), 77);
}

TEST_F(OpenShotTest, ATimeWithoutPictureIsTold) {
    OpenShot shot = movies({"--frames2", "4"});
    try {
        shot.go_to(0.2, 0.2);
        FAIL() << "there is no such frame";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "input 2 has no picture at that time");
    }
}

TEST_F(OpenShotTest, OnlyFormatsThatCanBeStitchedAreTaken) {
    files = stills_in(dir, {"--size", "1440", "--chroma", "422"});
    OpenShot shot(files.one.c_str(), files.two.c_str());
    shot.go_to(0, 0);
    EXPECT_EQ(shot.frame(1)->format, AV_PIX_FMT_YUV420P);
    const TempDir other;
    const Shot fine = stills_in(other, {"--size", "1440", "--chroma", "444"});
    try {
        OpenShot(files.one.c_str(), fine.two.c_str()).go_to(0, 0);
        FAIL() << "4:4:4 is taken";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "input 2 is not 4:2:0 or 4:2:2 with 8 bits, the only formats that can be stitched");
    }
}

TEST_F(OpenShotTest, StitchesWhatAnExportWould) {
    OpenShot shot = movies();
    shot.go_to(2 * kFrameSeconds, 7 * kFrameSeconds);
    for (const ImageSize size :
         {ImageSize{360, 180}, ImageSize{720, 360}, ImageSize{2880, 1440}, ImageSize{301, 151}}) {
        OutputOption option = option_of(size);
        const FramePtr panorama = shot.stitched(option, AVCOL_RANGE_MPEG);
        Stitcher stitcher(option, false);
        stitcher.load(0, shot.frame(0));
        stitcher.load(1, shot.frame(1));
        const FramePtr expected = make_frame({size.width, size.height, AV_PIX_FMT_YUV420P});
        stitcher.stitch_luma(expected.get());
        stitcher.stitch_chroma(expected.get());
        for (int plane = 0; plane < 3; ++plane) {
            EXPECT_EQ(cv::norm(media_detail::plane(panorama.get(), plane), media_detail::plane(expected.get(), plane),
                               cv::NORM_INF),
                      0)
                << size.width << " " << plane;
        }
        EXPECT_THAT(codes_in(media_detail::plane(panorama.get(), 0)), Pair(2, 7));
        EXPECT_EQ(panorama->color_range, AVCOL_RANGE_MPEG);
    }
}

// The reduced frames of the ones before are not taken for theirs.
TEST_F(OpenShotTest, StitchesTheFramesItIsAt) {
    OpenShot shot = movies();
    const OutputOption option = option_of({360, 180});
    for (const int frame : {1, 6, 2}) {
        shot.go_to(frame * kFrameSeconds, 3 * kFrameSeconds);
        EXPECT_THAT(codes_in(media_detail::plane(shot.stitched(option, AVCOL_RANGE_MPEG).get(), 0)), Pair(frame, 3));
    }
}
