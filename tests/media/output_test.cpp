#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "support/media.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;

constexpr int kAnyLonger = -1;

// Movies of Motion JPEG whose sound track, if wanted, comes first.
std::string movie_in(const TempDir& dir, const std::string& name, int frames, const char* time_scale = "30000",
                     bool sound_first = false) {
    const std::string path = dir.file(name);
    std::vector<std::string> arguments = {"-f", "lavfi", "-i", "testsrc2=s=64x48:r=30000/1001"};
    if (sound_first) {
        arguments.insert(arguments.end(), {"-f", "lavfi", "-i", "sine=r=44100", "-map", "1:a", "-map", "0:v", "-c:a",
                                           "pcm_s16le", "-t", std::to_string(frames / 29.0)});
    }
    arguments.insert(arguments.end(), {"-frames:v", std::to_string(frames), "-c:v", "mjpeg", "-video_track_timescale",
                                       time_scale, "file:" + path});
    run_ffmpeg(arguments);
    return path;
}

// A job with both inputs open and an output whose streams a test adds.
class Job {
  public:
    Job(const std::string& input1, const std::string& input2, const std::string& output, const char* format)
        : input1_(input1), input2_(input2), output_(output), media(input1_.c_str(), input2_.c_str()) {
        EXPECT_EQ(media.open_input_file(0), 0);
        EXPECT_EQ(media.open_input_file(1), 0);
        EXPECT_GE(avformat_alloc_output_context2(&media.output_format, nullptr, format, output_.c_str()), 0);
    }

    void write_header() {
        if ((media.output_format->oformat->flags & AVFMT_NOFILE) == 0) {
            ASSERT_GE(avio_open(&media.output_format->pb, ("file:" + output_).c_str(), AVIO_FLAG_WRITE), 0);
        }
        ASSERT_GE(avformat_write_header(media.output_format, nullptr), 0);
    }

    const AVCodecContext* encoder() const { return media.video_encoder_context; }

  private:
    std::string input1_;
    std::string input2_;
    std::string output_;

  public:
    libavIF media;
};

FramePtr gray_frame(const AVCodecContext* encoder, int64_t pts) {
    FramePtr frame(av_frame_alloc());
    frame->width = encoder->width;
    frame->height = encoder->height;
    frame->format = encoder->pix_fmt;
    frame->pts = pts;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 32), 0);
    std::fill_n(frame->buf[0]->data, frame->buf[0]->size, static_cast<uint8_t>(100 + pts % 7));
    return frame;
}

TEST(AddVideoStream, OpensOpenh264ForAMovie) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    Job job(input, input, dir.file("out.mov"), nullptr);
    ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 128, 64, 0), 0);
    EXPECT_STREQ(job.encoder()->codec->name, "libopenh264");
    EXPECT_EQ(job.encoder()->width, 128);
    EXPECT_EQ(job.encoder()->height, 64);
    EXPECT_EQ(job.encoder()->pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(av_cmp_q(job.encoder()->time_base, AVRational{1001, 30000}), 0);
    EXPECT_EQ(av_cmp_q(job.media.video_stream->time_base, AVRational{1, 30000}), 0);
    EXPECT_EQ(job.media.video_stream->id, 0);
    EXPECT_NE(job.encoder()->flags & AV_CODEC_FLAG_GLOBAL_HEADER, 0) << "MOV keeps the headers in one place";
    EXPECT_GT(job.encoder()->extradata_size, 0);
}

TEST(AddVideoStream, OpensMotionJpegForAPicture) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    Job job(input, input, dir.file("out.jpg"), nullptr);
    ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_MJPEG, 100, 50, 0), 0);
    EXPECT_EQ(job.encoder()->codec_id, AV_CODEC_ID_MJPEG);
    EXPECT_EQ(job.encoder()->pix_fmt, AV_PIX_FMT_YUVJ420P);
    EXPECT_EQ(job.encoder()->time_base.num, 1001);
    EXPECT_EQ(job.encoder()->flags & AV_CODEC_FLAG_GLOBAL_HEADER, 0);
}

TEST(AddVideoStream, ScalesTheSourcesBitRateByTheArea) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);  // 64 x 48
    const struct {
        int width, height;
        int64_t source, expected;
    } cases[] = {{128, 96, 1000000, 4000000},
                 {64, 48, 1234567, 1234567},
                 {100, 50, 1000001, static_cast<int64_t>(std::floor(50 / 48.0 * (100 / 64.0 * 1000001)))},
                 {64, 48, 0, 0}};
    for (const auto& one : cases) {
        Job job(input, input, dir.file("out.jpg"), nullptr);
        job.media.video_decoder[0]->bit_rate = one.source;
        ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_MJPEG, one.width, one.height, 0), 0);
        EXPECT_EQ(job.encoder()->bit_rate, one.expected);
    }
}

// openh264 refuses a rate above that of its highest level.
TEST(AddVideoStream, HoldsTheBitRateToWhatOpenh264Takes) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    Job job(input, input, dir.file("out.mov"), nullptr);
    job.media.video_decoder[0]->bit_rate = 100000000;
    ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 640, 480, 0), 0);
    EXPECT_EQ(job.encoder()->bit_rate, 288000000);
}

TEST(AddVideoStream, FollowsTheInputThatIsChosen) {
    TempDir dir;
    const std::string long_movie = movie_in(dir, "long.mov", 20, "30000");
    const std::string short_movie = movie_in(dir, "short.mov", 5, "60000");
    const struct {
        const std::string &input1, &input2;
        int source;
        int time_scale;
    } cases[] = {{long_movie, short_movie, 0, 30000},          {long_movie, short_movie, 1, 60000},
                 {long_movie, short_movie, kAnyLonger, 30000}, {short_movie, long_movie, kAnyLonger, 30000},
                 {short_movie, long_movie, 0, 60000},          {short_movie, long_movie, 2, 30000}};
    for (const auto& one : cases) {
        Job job(one.input1, one.input2, dir.file("out.mov"), nullptr);
        ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 64, 48, one.source), 0);
        EXPECT_EQ(job.encoder()->time_base.den, one.time_scale) << one.source;
    }
}

TEST(AddVideoStream, OfTwoEquallyLongInputsFollowsTheSecond) {
    TempDir dir;
    const std::string one = movie_in(dir, "one.mov", 30, "30000");
    const std::string two = movie_in(dir, "two.mov", 30, "60000");
    Job job(one, two, dir.file("out.mov"), nullptr);
    ASSERT_EQ(job.media.input_format[0]->duration, job.media.input_format[1]->duration);
    ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 64, 48, kAnyLonger), 0);
    EXPECT_EQ(job.encoder()->time_base.den, 60000);
}

// Input 1's index is used for both inputs, deliberately, but never where the other has no such stream.
TEST(AddVideoStream, TakesTheLongerInputsStreamAtInput1sIndex) {
    TempDir dir;
    const std::string video_only = movie_in(dir, "video.mov", 5, "30000");
    const std::string sound_first = movie_in(dir, "sound.mov", 60, "30000", true);
    {
        Job job(video_only, sound_first, dir.file("out.mov"), nullptr);
        ASSERT_EQ(job.media.video_stream_index[1], 1);
        ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 64, 48, kAnyLonger), 0);
        EXPECT_EQ(job.encoder()->time_base.den, 44100) << "stream 0 of input 2 is its sound";
    }
    const std::string long_video = movie_in(dir, "long.mov", 90, "60000");
    {
        Job job(sound_first, long_video, dir.file("out.mov"), nullptr);
        ASSERT_EQ(job.media.video_stream_index[0], 1);
        ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 64, 48, kAnyLonger), 0);
        EXPECT_EQ(job.encoder()->time_base.den, 60000) << "input 2 has no stream 1";
    }
}

TEST(AddVideoStream, SaysWhatItCannotFind) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    Job job(input, input, dir.file("out.mov"), nullptr);
    EXPECT_EQ(job.media.add_video_stream(AV_CODEC_ID_NONE, 64, 48, 0), AVERROR_EXIT);
    EXPECT_STREQ(job.media.error_text, "Colud not finde encoder");
    EXPECT_EQ(job.media.error_code, AVERROR_EXIT);
}

TEST(AddVideoStream, PassesOnWhatTheEncoderRefuses) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    Job job(input, input, dir.file("out.mov"), nullptr);
    const int result = job.media.add_video_stream(AV_CODEC_ID_H264, 0, 48, 0);
    EXPECT_LT(result, 0);
    EXPECT_EQ(job.media.error_code, result);
    EXPECT_STRNE(job.media.error_text, "");
}

// ---- Writing ----

TEST(WriteVideoFrame, StampsPacketsOf1001TicksInTheEncodersUnits) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    for (int frames : {1, 4}) {
        const std::string output = dir.file("out.mov");
        Job job(input, input, output, nullptr);
        ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 64, 48, 0), 0);
        job.write_header();
        for (int i = 0; i < frames; ++i) {
            EXPECT_EQ(job.media.write_video_frame(gray_frame(job.encoder(), 1001 * i).get()), 0);
        }
        EXPECT_EQ(job.media.write_video_frame(nullptr), 1) << "openh264 holds nothing back";
        EXPECT_EQ(job.media.write_video_frame(nullptr), 1) << "told twice";
        ASSERT_EQ(av_write_trailer(job.media.output_format), 0);
        job.media.close_output_file();

        int count = 0;
        for (const StoredPacket& packet : packets_of(output)) {
            EXPECT_EQ(packet.pts, 1001 * count++);
            EXPECT_EQ(packet.duration, 1001) << "the last one too, or a player ends early";
        }
        EXPECT_EQ(count, frames);
        const nlohmann::json stream = stream_of(probe(output), "video");
        EXPECT_EQ(stream.at("duration_ts"), 1001 * frames);
        EXPECT_EQ(stream.at("nb_frames"), std::to_string(frames));
    }
}

TEST(WriteVideoFrame, PassesOnWhatTheEncoderRefuses) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    Job job(input, input, dir.file("out.mov"), nullptr);
    ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 64, 48, 0), 0);
    job.write_header();
    const FramePtr empty(av_frame_alloc());
    const int result = job.media.write_video_frame(empty.get());
    EXPECT_LT(result, 0);
    EXPECT_EQ(job.media.error_code, result);
}

TEST(WriteVideoFrame, SaysNothingOnTheErrorStream) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    EXPECT_EQ(logged([&] {
                  Job job(input, input, dir.file("out.mov"), nullptr);
                  job.media.add_video_stream(AV_CODEC_ID_H264, 128, 64, 0);
                  job.write_header();
                  job.media.write_video_frame(gray_frame(job.encoder(), 0).get());
                  av_write_trailer(job.media.output_format);
              }),
              "");
}

TEST(CloseOutputFile, ReleasesAllOnceAndMayBeCalledAgain) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    Job job(input, input, dir.file("out.mov"), nullptr);
    ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 64, 48, 0), 0);
    job.media.init_sws_context();
    EXPECT_NE(job.media.sws_context, nullptr);
    job.write_header();
    job.media.close_output_file();
    EXPECT_EQ(job.media.output_format, nullptr);
    EXPECT_EQ(job.media.video_encoder_context, nullptr);
    EXPECT_EQ(job.media.video_stream, nullptr);
    EXPECT_EQ(job.media.sws_context, nullptr);
    job.media.close_output_file();
    EXPECT_NE(job.media.input_format[0], nullptr) << "the inputs stay open";
}

// ---- What the encoders are left to choose by themselves ----

std::vector<size_t> key_frames(const nlohmann::json& probed) {
    std::vector<size_t> keys;
    const nlohmann::json& packets = probed.at("packets");
    for (size_t i = 0; i < packets.size(); ++i) {
        if (packets[i].at("flags").get<std::string>().find('K') != std::string::npos) {
            keys.push_back(i);
        }
    }
    return keys;
}

// A calm movie has one key frame, its first: there is no interval.
TEST(VideoEncoder, OfH264IsOpenh264sDefault) {
    TempDir dir;
    const std::string input = movie_in(dir, "in.mov", 5);
    const std::string output = dir.file("out.mov");
    Job job(input, input, output, nullptr);
    ASSERT_EQ(job.media.add_video_stream(AV_CODEC_ID_H264, 64, 48, 0), 0);
    job.write_header();
    for (int i = 0; i < 301; ++i) {
        ASSERT_EQ(job.media.write_video_frame(gray_frame(job.encoder(), 1001 * i).get()), 0);
    }
    ASSERT_EQ(av_write_trailer(job.media.output_format), 0);
    job.media.close_output_file();
    const nlohmann::json probed = probe(output);
    EXPECT_EQ(key_frames(probed), (std::vector<size_t>{0}));
    const nlohmann::json stream = stream_of(probed, "video");
    EXPECT_EQ(stream.at("profile"), "Constrained Baseline");
    EXPECT_EQ(stream.at("has_b_frames"), 0);
    EXPECT_EQ(stream.at("pix_fmt"), "yuv420p");
    EXPECT_EQ(stream.value("color_range", "none"), "none");
}

// The sum of a JPEG's first quantiser table; 0 when it has none.
int quantisers_of(const std::string& path) {
    const Bytes file = read_file(path);
    const Bytes marker = {0xFF, 0xDB};
    const auto table = std::search(file.begin(), file.end(), marker.begin(), marker.end());
    return file.end() - table < 5 + 64 ? 0 : std::accumulate(table + 5, table + 5 + 64, 0);
}

// Of a picture whose luma is 0 to `spread` at random.
int quantisers_for(const TempDir& dir, unsigned spread) {
    const std::string input = movie_in(dir, "in.mov", 5);
    const std::string output = dir.file("out.jpg");
    Job job(input, input, output, nullptr);
    EXPECT_EQ(job.media.add_video_stream(AV_CODEC_ID_MJPEG, 128, 128, 0), 0);
    job.write_header();
    const FramePtr frame = gray_frame(job.encoder(), 0);
    std::mt19937 random(1);
    std::generate_n(frame->data[0], 128 * frame->linesize[0],
                    [&] { return static_cast<uint8_t>(random() % (spread + 1)); });
    EXPECT_EQ(job.media.write_video_frame(frame.get()), 0);
    EXPECT_EQ(av_write_trailer(job.media.output_format), 0);
    job.media.close_output_file();
    return quantisers_of(output);
}

// The more there is in a picture, the coarser it is kept.
TEST(VideoEncoder, OfJpegChoosesItsQuantisersByThePicture) {
    TempDir dir;
    const int calm = quantisers_for(dir, 0);
    const int livelier = quantisers_for(dir, 120);
    const int wild = quantisers_for(dir, 255);
    EXPECT_GT(calm, 0);
    EXPECT_LT(calm, livelier);
    EXPECT_LT(livelier, wild);
}

}  // namespace
