// What the media layer leaves in words when a call of FFmpeg's fails that otherwise never does.
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/output_option.h"
#include "projection/soavfunc.h"
#include "sample/lens.h"
#include "support/command.h"
#include "support/failing_call.h"
#include "support/samples.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;
using testing::HasSubstr;

constexpr int kLens = 256;

class FailingCalls : public testing::Test {
  protected:
    FailingCalls()
        : movies_(movies_in(dir_, {"--size", std::to_string(kLens), "--frames", "3", "--sound", "1"})),
          media(movies_.one.c_str(), movies_.two.c_str()) {
        EXPECT_EQ(media.open_input_file(0), 0) << media.error_text;
        EXPECT_EQ(media.open_input_file(1), 0) << media.error_text;
    }

    // An output without streams yet.
    void open_output() { ASSERT_GE(avformat_alloc_output_context2(&media.output_format, nullptr, "mov", nullptr), 0); }

    // An output with sound, and its first packet.
    void start_sound() {
        open_output();
        ASSERT_EQ(media.add_audio_stream(AV_CODEC_ID_PCM_S16LE, 0), 0);
        ASSERT_EQ(media.init_swr_context(), 0);
        ASSERT_EQ(media.init_audio_fifo(), 0);
        do {
            av_packet_unref(packet_.get());
            ASSERT_GE(av_read_frame(media.input_format[0], packet_.get()), 0);
        } while (packet_->stream_index != media.audio_stream_index[0]);
    }
    int decode_sound() {
        int finished = 0;
        return media.read_decode_stroe(0, packet_.get(), &finished, 0, 0);
    }

    void expect_left(int result, int code, const std::string& words) const {
        EXPECT_EQ(result, code);
        EXPECT_EQ(media.error_code, code);
        EXPECT_EQ(media.error_text, words);
    }

    // Of an export with sound in which this call fails; the result, with what is logged in `log`.
    int write(const char* function, int number) {
        OutputOption option;
        option.output_size = {128, 64};
        option.end1 = option.end2 = 1000;
        option.audio_source = 0;
        option.transmap =
            create_equidistantmap(option.output_size, {kLens, kLens}, sample::lens_radius(kLens), 0, option.rotation);
        int result = 0;
        log = logged([&] {
            const FailingCall failing(function, number);
            result = media.write_video(dir_.file("out.mov").c_str(), nullptr, option, nullptr);
            EXPECT_TRUE(failing.failed());
        });
        EXPECT_EQ(media.output_format, nullptr) << "the output is closed";
        return result;
    }

    // The line of this step, with what is left of the failure.
    std::string line_of(const std::string& step) const {
        return "[libavIF::write_video] " + step + " error " + std::to_string(media.error_code) + ":" +
               media.error_text + "\n";
    }

  private:
    TempDir dir_;
    Shot movies_;
    PacketPtr packet_{av_packet_alloc()};

  protected:
    libavIF media;
    std::string log;
};

// ---- Streams ----

TEST_F(FailingCalls, OfAVideoStream) {
    open_output();
    const FailingCall failing("avformat_new_stream");
    expect_left(media.add_video_stream(AV_CODEC_ID_H264, 128, 64, -1), AVERROR_EXIT, "Could not allocate stream\n");
}

TEST_F(FailingCalls, OfASoundStream) {
    open_output();
    const FailingCall failing("avformat_new_stream");
    expect_left(media.add_audio_stream(AV_CODEC_ID_PCM_S16LE, 0), AVERROR_EXIT, "Could not allocate stream\n");
}

// ---- Sound ----

TEST_F(FailingCalls, OfTheResampler) {
    open_output();
    ASSERT_EQ(media.add_audio_stream(AV_CODEC_ID_PCM_S16LE, 0), 0);
    const FailingCall failing("swr_alloc");
    EXPECT_EQ(media.init_swr_context(), -1);
    EXPECT_EQ(media.error_code, -1);
}

TEST_F(FailingCalls, OfTheQueue) {
    open_output();
    ASSERT_EQ(media.add_audio_stream(AV_CODEC_ID_PCM_S16LE, 0), 0);
    const FailingCall failing("av_audio_fifo_alloc");
    expect_left(media.init_audio_fifo(), AVERROR(ENOMEM), "Colud Not allocate Audio Fifo");
    EXPECT_EQ(media.error_code, -12);
}

TEST_F(FailingCalls, OfTheFrameThatIsDecodedInto) {
    start_sound();
    const FailingCall failing("av_frame_alloc");
    expect_left(decode_sound(), AVERROR(ENOMEM), "Colud Not allocate input frame");
}

TEST_F(FailingCalls, OfTheFrameThatIsEncoded) {
    start_sound();
    ASSERT_GT(decode_sound(), 0);
    const FailingCall failing("av_frame_alloc");
    logged([&] { expect_left(media.load_encode_write(), AVERROR(ENOMEM), "Colud Not allocate input frame"); });
}

TEST_F(FailingCalls, OfTheQueueThatHasLessThanItTold) {
    start_sound();
    logged([&] {
        const FailingCall failing("av_audio_fifo_size");
        expect_left(media.load_encode_write(), AVERROR_EXIT, "Colud Not read data from audio fifo");
    });
}

// ---- The lines of an export ----

TEST_F(FailingCalls, AreLoggedWithTheirStep) {
    const struct {
        const char* function;
        int number;
        const char* step;
        int code;
    } cases[] = {{"avformat_new_stream", 0, "add audio stream", AVERROR_EXIT},
                 {"avformat_new_stream", 1, "add video stream", AVERROR_EXIT},
                 {"swr_alloc", 0, "init swr_context", -1},
                 {"av_audio_fifo_alloc", 0, "init audio buffer", AVERROR(ENOMEM)},
                 {"avformat_write_header", 0, "write header", AVERROR(ENOMEM)},
                 {"av_interleaved_write_frame", 1, "convert_frame", AVERROR(ENOMEM)}};
    for (const auto& one : cases) {
        ASSERT_EQ(media.open_input_file(0), 0);
        ASSERT_EQ(media.open_input_file(1), 0);
        EXPECT_EQ(write(one.function, one.number), one.code) << one.step;
        EXPECT_EQ(media.error_code, one.code) << one.step;
        EXPECT_THAT(log, HasSubstr(line_of(one.step)));
    }
}

}  // namespace
