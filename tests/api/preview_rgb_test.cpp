// The pixels of one panorama: what its JPEG would be made of.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "api/inputs.h"
#include "media/open_shot.h"
#include "media/rgb.h"
#include "support/samples.h"
#include "support/with_options.h"

using namespace test_support;

namespace {

class PreviewRgb : public testing::Test {
  protected:
    void use(const Shot& files) {
        shot = files;
        options = export_options(shot.one, shot.two, output, 320, 160);
        options.yaw = 30;
        options.pitch = -10;
        options.feather = 3;
        options.gain1[0] = 0.5;
        options.reply = record_reply;
        options.log = record_line;
        options.user = &recorded;
    }

    // What the library hands out; empty after a failure.
    std::vector<unsigned char> preview(NQ360_SHOT* open = nullptr) {
        unsigned char left = 0;
        unsigned char* rgb = &left;
        size_t size = 1;
        const int state = NQ360_preview_rgb(&options, open, &rgb, &size);
        EXPECT_EQ(rgb == nullptr, state != NQ360_FINISHED);
        EXPECT_EQ(size == 0, rgb == nullptr);
        const std::vector<unsigned char> pixels(rgb, rgb + size);
        NQ360_free(rgb);
        return pixels;
    }

    // The panorama as it is stitched, before anything else is done to it.
    std::vector<unsigned char> stitched(AVColorRange range) {
        AnalyzeResult input1;
        AnalyzeResult input2;
        const char* reply = nullptr;
        EXPECT_EQ(analyze_inputs({options.lens1, options.lens2, nullptr, nullptr}, &input1, &input2, &reply), 0);
        OutputOption look = look_of(options);
        look.filter = true;
        prepare_projection(nullptr, input1, input2, &look);
        OpenShot frames(options.lens1, options.lens2);
        frames.go_to(options.start1, options.start2);
        const cv::Mat pixels = rgb_of(frames.stitched(look, range).get());
        EXPECT_EQ(pixels.size(), cv::Size(320, 160));
        return {pixels.data, pixels.data + 3 * pixels.total()};
    }

    TempDir dir;
    Shot shot;
    std::string output;
    NQ360_EXPORT_OPTIONS options;
    Recorded recorded;
};

}  // namespace

TEST_F(PreviewRgb, IsTheStitchedPanorama) {
    use(stills_in(dir, {"--size", "1440"}));
    const std::vector<unsigned char> pixels = preview();
    EXPECT_TRUE(pixels == stitched(AVCOL_RANGE_JPEG));
    EXPECT_EQ(recorded.replies.back().json().at("width"), 320);
    EXPECT_EQ(recorded.replies.back().json().at("height"), 160);
}

TEST_F(PreviewRgb, OfAMovieIsThatOfItsFrame) {
    use(movies_in(dir, {"--size", "1440", "--frames", "12"}));
    options.start1 = options.start2 = 0.2;
    EXPECT_TRUE(preview() == stitched(AVCOL_RANGE_MPEG));
}

TEST_F(PreviewRgb, TakesAnOpenShotAndOddSides) {
    use(stills_in(dir, {"--size", "1440"}));
    options.width = 101;
    options.height = 51;
    const std::vector<unsigned char> pixels = preview();
    EXPECT_EQ(pixels.size(), 3u * 101 * 51);
    NQ360_SHOT* open = NQ360_shot_open(&options);
    EXPECT_TRUE(preview(open) == pixels);
    NQ360_shot_close(open);
}

TEST_F(PreviewRgb, AFailureHandsOutNothing) {
    use({"no", "such"});
    EXPECT_TRUE(preview().empty());
    EXPECT_EQ(recorded.replies.back().json().at("errnum"), "30000");
    EXPECT_EQ(NQ360_preview_rgb(nullptr, nullptr, nullptr, nullptr), NQ360_FAILED);
    use(stills_in(dir, {"--size", "1440"}));
    size_t size = 0;
    EXPECT_EQ(NQ360_preview_rgb(&options, nullptr, nullptr, &size), NQ360_FAILED);
    EXPECT_EQ(recorded.replies.back().json().at("api_errstr"), "rgb: must not be null");
}
