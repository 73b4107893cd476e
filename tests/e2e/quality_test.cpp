// How near pictures come to the panorama before its encoder.
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/scaler.h"
#include "media/stitcher.h"
#include "projection/lens_circle.h"
#include "support/samples.h"
#include "support/temp_dir.h"
#include "support/with_options.h"

using namespace test_support;

namespace {

FramePtr decoded(const std::string& path) {
    libavIF media(path.c_str());
    EXPECT_EQ(media.open_input_file(0), 0) << media.error_text;
    AVFrame* frame = nullptr;
    media.get_frame(&frame);
    return FramePtr(frame);
}

// The panorama of two lens pictures as it is before its encoder.
FramePtr stitched(const Shot& shot, ImageSize size) {
    const FramePtr lenses[2] = {decoded(shot.one), decoded(shot.two)};
    OutputOption option;
    option.output_size = option.transmap.equsize = size;
    option.transmap.projsize = {lenses[0]->width, lenses[0]->height};
    option.radius = projection_radius(lenses[0]->width);
    Stitcher stitcher(option, false);
    stitcher.load(0, lenses[0].get());
    stitcher.load(1, lenses[1].get());
    FramePtr panorama = make_frame({size.width, size.height, AV_PIX_FMT_YUV420P});
    stitcher.stitch_chroma(panorama.get());
    stitcher.stitch_luma(panorama.get());
    return panorama;
}

double luma_psnr(const AVFrame* a, const AVFrame* b) {
    double sum = 0;
    for (int row = 0; row < a->height; ++row) {
        const uint8_t* line_a = a->data[0] + static_cast<ptrdiff_t>(row) * a->linesize[0];
        const uint8_t* line_b = b->data[0] + static_cast<ptrdiff_t>(row) * b->linesize[0];
        for (int column = 0; column < a->width; ++column) {
            const double difference = line_a[column] - line_b[column];
            sum += difference * difference;
        }
    }
    return 10 * std::log10(255.0 * 255.0 * a->width * a->height / sum);
}

double psnr_at(const Shot& shot, const AVFrame* panorama, const std::string& output, int quality) {
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output, panorama->width, panorama->height);
    options.quality = quality;
    EXPECT_EQ(export_with(options).result, NQ360_FINISHED);
    return luma_psnr(panorama, decoded(output).get());
}

}  // namespace

TEST(Quality, Of95IsNearThePanoramaOfAPhotograph) {
    TempDir dir;
    const Shot shot = stills_in(dir, {"--size", "3888", "--scene", NQ360_TEST_DATA "/apollo17.png"});
    const FramePtr panorama = stitched(shot, {7680, 3840});
    const double fine = psnr_at(shot, panorama.get(), dir.file("fine.jpg"), 95);
    const double plain = psnr_at(shot, panorama.get(), dir.file("plain.jpg"), 0);
    RecordProperty("fine_dB", std::to_string(fine));
    RecordProperty("plain_dB", std::to_string(plain));
    EXPECT_GE(fine, 46);
    EXPECT_GE(fine, plain + 5);
}

TEST(Quality, Of95IsNearerThePanoramaOfAGrainyScene) {
    TempDir dir;
    const Shot shot = stills_in(dir, {"--size", "1936", "--grain", "4"});
    const FramePtr panorama = stitched(shot, {3840, 1920});
    const double fine = psnr_at(shot, panorama.get(), dir.file("fine.jpg"), 95);
    const double plain = psnr_at(shot, panorama.get(), dir.file("plain.jpg"), 0);
    EXPECT_GE(fine, plain + 5);
}

namespace {

// The thumbnail of a picture or movie.
FramePtr thumbnail_of(const std::string& input, const std::string& path, int width, int quick) {
    NQ360_ANALYZE_OPTIONS options;
    NQ360_analyze_options_init(&options);
    options.input = input.c_str();
    options.thumbnail = path.c_str();
    options.thumbnail_width = width;
    options.thumbnail_always = 1;
    options.quick = quick;
    EXPECT_EQ(NQ360_analyze_with(&options), NQ360_FINISHED);
    return decoded(path);
}

// The first picture as it is before a thumbnail's encoder, reduced at once from its whole size.
FramePtr reduced(const std::string& input, PictureFormat format) {
    const FramePtr whole = decoded(input);
    const ScalerPtr scaler(make_scaler(format_of(whole.get()), format));
    FramePtr small = make_frame(format);
    EXPECT_GT(scale_frame(scaler.get(), whole.get(), small.get()), 0);
    return small;
}

// How far a quick thumbnail is from another, but for what their encoder, which is the same, does to both.
double quick_psnr(const TempDir& dir, const std::string& input, int width) {
    const FramePtr whole = thumbnail_of(input, dir.file("whole.jpg"), width, 0);
    const FramePtr quick = thumbnail_of(input, dir.file("quick.jpg"), width, 1);
    const FramePtr ideal = reduced(input, format_of(whole.get()));
    const auto error = [&](const AVFrame* frame) { return std::pow(10, -luma_psnr(ideal.get(), frame) / 10); };
    const double more = error(quick.get()) - error(whole.get());
    return more > 0 ? -10 * std::log10(more) : std::numeric_limits<double>::infinity();
}

}  // namespace

// At the widths from which pictures are decoded to a half, a quarter and an eighth, and above and below.
TEST(Quality, OfQuickThumbnailsIsNearThatOfOthers) {
    TempDir dir;
    const std::pair<const char*, std::vector<int>> cases[] = {
        {"3888", {1944, 1000, 648, 480, 324, 320, 160}}, {"1936", {968, 480, 322, 160}}, {"1440", {720, 240, 120, 50}}};
    for (const auto& [size, widths] : cases) {
        const Shot shot = stills_in(dir, {"--size", size, "--scene", NQ360_TEST_DATA "/apollo17.png"});
        for (const int width : widths) {
            EXPECT_GE(quick_psnr(dir, shot.one, width), 38) << size << " to " << width;
            EXPECT_GE(quick_psnr(dir, shot.two, width), 38) << size << " to " << width;
        }
    }
}

TEST(Quality, RisesWithItsNumber) {
    TempDir dir;
    const Shot shot = stills_in(dir, {"--size", "1440"});
    const FramePtr panorama = stitched(shot, {1440, 720});
    double before = 0;
    for (const int quality : {1, 30, 60, 80, 90, 95, 100}) {
        const double psnr = psnr_at(shot, panorama.get(), dir.file("out.jpg"), quality);
        EXPECT_GT(psnr, before) << quality;
        before = psnr;
    }
}
