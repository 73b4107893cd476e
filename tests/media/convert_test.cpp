#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/output_option.h"
#include "projection/soavfunc.h"
#include "support/media.h"
#include "support/picture.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;

constexpr int kLens = 96;  // pixels a side of the lens pictures

FramePtr make_frame(int width, int height, AVPixelFormat format, int y, int u, int v) {
    FramePtr frame(av_frame_alloc());
    frame->width = width;
    frame->height = height;
    frame->format = format;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 32), 0);
    const bool all_rows = format == AV_PIX_FMT_YUV422P || format == AV_PIX_FMT_YUVJ422P;
    const int values[] = {y, u, v};
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 || all_rows ? height : (height + 1) / 2;
        std::fill_n(frame->data[plane], frame->linesize[plane] * rows, static_cast<uint8_t>(values[plane]));
    }
    return frame;
}

// Lens 1 is dark and bluish, lens 2 bright and reddish.
FramePtr lens1(AVPixelFormat format = AV_PIX_FMT_YUV420P, int size = kLens) {
    return make_frame(size, size, format, 60, 150, 100);
}
FramePtr lens2(AVPixelFormat format = AV_PIX_FMT_YUV420P, int size = kLens) {
    return make_frame(size, size, format, 180, 90, 170);
}

OutputOption option_for(int width = 128, int height = 64) {
    OutputOption option;
    option.output_size = {width, height};
    option.correct1 = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, CORRECT_NONE);
    option.correct2 = option.correct1;
    option.transmap = create_equidistantmap(option.output_size, {kLens, kLens}, 40.0, 0, option.rotation);
    return option;
}

// An export that has reached its frames: both inputs open, the output's header written.
class Export {
  public:
    Export(const OutputOption& option, AVCodecID codec, const std::string& name)
        : input_(dir_.file("in.mov")), output_(dir_.file(name)) {
        make_movie(input_, "96x96", 2, {"-c:v", "mjpeg"});
        media = std::make_unique<libavIF>(input_.c_str(), input_.c_str());
        EXPECT_EQ(media->open_input_file(0), 0);
        EXPECT_EQ(media->open_input_file(1), 0);
        EXPECT_GE(avformat_alloc_output_context2(&media->output_format, nullptr, nullptr, output_.c_str()), 0);
        media->video_decoder[0]->bit_rate = 50000000;
        EXPECT_EQ(media->add_video_stream(codec, option.output_size.width, option.output_size.height, 0), 0);
        if ((media->output_format->oformat->flags & AVFMT_NOFILE) == 0) {
            EXPECT_GE(avio_open(&media->output_format->pb, output_.c_str(), AVIO_FLAG_WRITE), 0);
        }
        EXPECT_GE(avformat_write_header(media->output_format, nullptr), 0);
    }

    // Ends the file and returns its path.
    const std::string& finish() {
        EXPECT_EQ(av_write_trailer(media->output_format), 0);
        media->close_output_file();
        return output_;
    }

  private:
    TempDir dir_;
    std::string input_;
    std::string output_;

  public:
    std::unique_ptr<libavIF> media;
};

// The planes of the panorama that the pair gives.
Planes panorama_of(AVFrame* frame1, AVFrame* frame2, const OutputOption& option) {
    Export job(option, AV_CODEC_ID_H264, "out.mov");
    EXPECT_EQ(job.media->convert_frame(frame1, frame2, option), 0);
    return frames_of(job.finish()).at(0);
}

// Y, U and V of the upper (lens 1) or lower half of the panorama, away from the seam.
cv::Vec3d upper(const Planes& planes) {
    return {mean_of(planes[0].rowRange(4, 28)), mean_of(planes[1].rowRange(2, 14)), mean_of(planes[2].rowRange(2, 14))};
}
cv::Vec3d lower(const Planes& planes) {
    return {mean_of(planes[0].rowRange(36, 60)), mean_of(planes[1].rowRange(18, 30)),
            mean_of(planes[2].rowRange(18, 30))};
}

void expect_colour(const cv::Vec3d& found, const cv::Vec3d& expected) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_NEAR(found[i], expected[i], 2) << "plane " << i;
    }
}

// ---- Frames and pictures ----

TEST(AvframeFromImageframe, BorrowsThePlanes) {
    ImageFrame picture;
    picture.frameType = FRAME_TYPE_YUV420;
    picture.YUVMats = {cv::Mat(33, 47, CV_8UC1, cv::Scalar(1)), cv::Mat(16, 23, CV_8UC1, cv::Scalar(2)),
                       cv::Mat(16, 23, CV_8UC1, cv::Scalar(3))};
    const FramePtr frame(avframe_from_iamgeframe(picture));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width, 47);
    EXPECT_EQ(frame->height, 33);
    EXPECT_EQ(frame->format, AV_PIX_FMT_YUV420P);
    for (size_t plane = 0; plane < 3; ++plane) {
        EXPECT_EQ(frame->data[plane], picture.YUVMats[plane].data) << plane;
        EXPECT_EQ(frame->linesize[plane], static_cast<int>(picture.YUVMats[plane].step)) << plane;
        EXPECT_EQ(frame->buf[plane], nullptr) << "no memory of its own";
    }
}

TEST(ImageframeFromAvframe, LeavesOutTheSpareBytesOfARow) {
    for (const auto& [width, height] : {std::pair(50, 20), std::pair(51, 21)}) {
        const FramePtr frame = make_frame(width, height, AV_PIX_FMT_YUV420P, 10, 20, 30);
        ASSERT_GT(frame->linesize[0], width);
        const ImageFrame picture = imageframe_from_avframe(frame.get());
        ASSERT_EQ(picture.frameType, FRAME_TYPE_YUV420);
        EXPECT_EQ(picture.YUVMats[0].size(), cv::Size(width, height));
        EXPECT_EQ(picture.YUVMats[1].size(), cv::Size(width / 2, height / 2)) << "halves are rounded down";
        EXPECT_EQ(picture.YUVMats[2].size(), cv::Size(width / 2, height / 2));
        for (const cv::Mat& plane : picture.YUVMats) {
            EXPECT_EQ(plane.step, static_cast<size_t>(plane.cols));
        }
        EXPECT_NE(picture.YUVMats[0].data, frame->data[0]) << "the pixels are its own";
    }
}

TEST(InitSwsContext2, ReadsTheSourceAs422) {
    const FramePtr source = make_frame(64, 32, AV_PIX_FMT_YUV422P, 60, 150, 100);
    const FramePtr target = make_frame(32, 16, AV_PIX_FMT_YUV420P, 0, 0, 0);
    SwsContext* context = nullptr;
    const ScalerPtr made(init_sws_context2(&context, source.get(), target.get()));
    ASSERT_TRUE(made);
    EXPECT_EQ(context, made.get());
    sws_scale(context, source->data, source->linesize, 0, 32, target->data, target->linesize);
    EXPECT_NEAR(target->data[0][17], 60, 1);
    EXPECT_NEAR(target->data[1][7 * target->linesize[1] + 3], 150, 1) << "the lowest row of colour too";
}

// ---- One pair ----

TEST(ConvertFrame, StitchesTheLensesOverEachOther) {
    const Planes planes = panorama_of(lens1().get(), lens2().get(), option_for());
    expect_colour(upper(planes), {60, 150, 100});
    expect_colour(lower(planes), {180, 90, 170});
}

TEST(ConvertFrame, TakesEveryMixOf420And422) {
    const AVPixelFormat formats[] = {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUV422P, AV_PIX_FMT_YUVJ422P};
    const OutputOption option = option_for();
    Export job(option, AV_CODEC_ID_H264, "out.mov");
    for (AVPixelFormat first : formats) {
        for (AVPixelFormat second : formats) {
            EXPECT_EQ(job.media->convert_frame(lens1(first).get(), lens2(second).get(), option), 0);
        }
    }
    const std::vector<Planes> frames = frames_of(job.finish());
    ASSERT_EQ(frames.size(), 16u);
    for (size_t i = 0; i < frames.size(); ++i) {
        SCOPED_TRACE(testing::Message() << formats[i / 4] << " with " << formats[i % 4]);
        // Full range is not squeezed: the bytes are taken as they are.
        expect_colour(upper(frames[i]), {60, 150, 100});
        expect_colour(lower(frames[i]), {180, 90, 170});
    }
}

TEST(ConvertFrame, Brings422OfTheSecondLensToTheFirstsSize) {
    const Planes planes = panorama_of(lens1().get(), lens2(AV_PIX_FMT_YUV422P, 2 * kLens).get(), option_for());
    expect_colour(lower(planes), {180, 90, 170});
}

TEST(ConvertFrame, CountsTheTimesOn) {
    const OutputOption option = option_for();
    Export job(option, AV_CODEC_ID_H264, "out.mov");
    EXPECT_EQ(job.media->next_video_pts, 0);
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(job.media->convert_frame(lens1().get(), lens2().get(), option), 0);
        EXPECT_EQ(job.media->next_video_pts, 1001 * (i + 1));
    }
    EXPECT_EQ(video_times(job.finish()), (std::vector<int64_t>{0, 1001, 2002}));
}

TEST(ConvertFrame, CorrectsEachLensByItsOwnTables) {
    OutputOption option = option_for();
    option.correct1 = create_linnercorrectmap(20, CORRECT_NONE, CORRECT_NONE);
    option.correct2 = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, -30);
    const Planes planes = panorama_of(lens1().get(), lens2().get(), option);
    expect_colour(upper(planes), {80, 150, 100});
    expect_colour(lower(planes), {180, 90, 140});
}

TEST(ConvertFrame, LeavesTablesWithoutAFlagAlone) {
    OutputOption option = option_for();
    std::memset(option.correct1.ytable, 255, sizeof option.correct1.ytable);
    std::memset(option.correct1.utable, 255, sizeof option.correct1.utable);
    const Planes planes = panorama_of(lens1().get(), lens2().get(), option);
    expect_colour(upper(planes), {60, 150, 100});
}

// Our planes of colour have one column and row less than the encoder's: the last one is repeated.
TEST(ConvertFrame, OfOddSizeHasColourUpToTheEdges) {
    const OutputOption option = option_for(129, 65);
    Export job(option, AV_CODEC_ID_MJPEG, "out.jpg");
    ASSERT_EQ(job.media->convert_frame(lens1().get(), lens2().get(), option), 0);
    const std::string& path = job.finish();
    EXPECT_EQ(size_of(path), cv::Size(129, 65));
    const cv::Mat u = plane_of(path, 'u');
    EXPECT_EQ(u.size(), cv::Size(65, 33));
    EXPECT_NEAR(mean_of(u.col(64).rowRange(2, 14)), 150, 4);
    EXPECT_NEAR(mean_of(u.row(32)), 90, 4);
}

std::string thrown_by(AVFrame* frame1, AVFrame* frame2) {
    const OutputOption option = option_for();
    Export job(option, AV_CODEC_ID_H264, "out.mov");
    try {
        job.media->convert_frame(frame1, frame2, option);
    } catch (const std::exception& exception) {
        return exception.what();
    }
    return "";
}

TEST(ConvertFrame, ThrowsATextForAFrameOfAnotherSize) {
    EXPECT_EQ(thrown_by(lens1(AV_PIX_FMT_YUV420P, 98).get(), lens2().get()),
              "input 1 has a frame of 98x98 where 96x96 was expected");
    EXPECT_EQ(thrown_by(lens1().get(), lens2(AV_PIX_FMT_YUV420P, 94).get()),
              "input 2 has a frame of 94x94 where 96x96 was expected");
    EXPECT_EQ(thrown_by(lens1(AV_PIX_FMT_YUV422P, 98).get(), lens2().get()),
              "input 1 has a frame of 98x98 where 96x96 was expected");
}

TEST(ConvertFrame, ThrowsATextForAFormatThatCannotBeStitched) {
    const FramePtr other = make_frame(kLens, kLens, AV_PIX_FMT_YUV444P, 1, 2, 3);
    EXPECT_EQ(thrown_by(other.get(), lens2().get()),
              "input 1 is not 4:2:0 or 4:2:2 with 8 bits, the only formats that can be stitched");
    EXPECT_EQ(thrown_by(lens1().get(), other.get()),
              "input 2 is not 4:2:0 or 4:2:2 with 8 bits, the only formats that can be stitched");
}

TEST(ConvertFrame, PassesOnAFailureToWrite) {
    const OutputOption option = option_for();
    Export job(option, AV_CODEC_ID_H264, "out.mov");
    job.media->next_video_pts = -5005;  // before the beginning, which the muxer refuses after a first packet
    job.media->convert_frame(lens1().get(), lens2().get(), option);
    job.media->next_video_pts = -5005;
    const int result = job.media->convert_frame(lens1().get(), lens2().get(), option);
    EXPECT_LT(result, 0);
    EXPECT_EQ(job.media->error_code, result);
    EXPECT_STRNE(job.media->error_text, "");
}

}  // namespace
