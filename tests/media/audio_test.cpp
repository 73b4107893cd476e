#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "support/media.h"
#include "support/progress_calls.h"
#include "support/real_function.h"
#include "support/temp_dir.h"

namespace {

bool hide_durations = false;

}  // namespace

// Takes the place of FFmpeg's function, for the library's calls too: packets of a container that tells no durations.
extern "C" int av_read_frame(AVFormatContext* input, AVPacket* packet) {
    static const auto real = test_support::real_function(&av_read_frame, "av_read_frame");
    const int result = real(input, packet);
    if (hide_durations) {
        packet->duration = 0;
    }
    return result;
}

namespace {

using namespace test_support;

// A movie with a few pictures and `seconds` of noise, which differs between the channels.
std::string movie_in(const TempDir& dir, double seconds, int rate = 48000, int channels = 2,
                     const std::vector<std::string>& codec = {"-c:a", "pcm_s16le"}) {
    const std::string path = dir.file("movie.mov");
    const std::string noise = channels == 1 ? "0.9*random(0)-0.45" : "0.9*random(0)-0.45|0.9*random(1)-0.45";
    std::vector<std::string> arguments = {
        "-f",   "lavfi", "-i", "testsrc2=s=64x48:r=10:d=" + std::to_string(seconds),
        "-f",   "lavfi", "-i", "aevalsrc='" + noise + "':s=" + std::to_string(rate) + ":d=" + std::to_string(seconds),
        "-c:v", "mjpeg"};
    arguments.insert(arguments.end(), codec.begin(), codec.end());
    arguments.push_back("file:" + path);
    run_ffmpeg(arguments);
    return path;
}

// A movie whose output for sound stands ready.
class SoundJob {
  public:
    explicit SoundJob(const std::string& input, const std::string& output = "")
        : input_(input), output_(output.empty() ? input + ".wav" : output), media(input_.c_str()) {
        EXPECT_EQ(media.open_input_file(0), 0) << media.error_text;
        EXPECT_GE(avformat_alloc_output_context2(&media.output_format, nullptr, nullptr, output_.c_str()), 0);
    }

    void start() {
        ASSERT_EQ(media.add_audio_stream(AV_CODEC_ID_PCM_S16LE, 0), 0);
        ASSERT_EQ(media.init_swr_context(), 0);
        ASSERT_EQ(media.init_audio_fifo(), 0);
        ASSERT_GE(avio_open(&media.output_format->pb, ("file:" + output_).c_str(), AVIO_FLAG_WRITE), 0);
        ASSERT_GE(avformat_write_header(media.output_format, nullptr), 0);
    }

    // The next packet of the sound; false at the end.
    bool read() {
        do {
            av_packet_unref(packet.get());
            if (av_read_frame(media.input_format[0], packet.get()) < 0) {
                return false;
            }
        } while (packet->stream_index != media.audio_stream_index[0]);
        return true;
    }
    double packet_seconds() const { return static_cast<double>(packet->pts) / media.audio_decoder[0]->sample_rate; }
    int queued() const { return av_audio_fifo_size(media.audio_fifo); }

    Samples take_queue() {
        Samples samples(static_cast<size_t>(2 * queued()));
        void* data = samples.data();
        av_audio_fifo_read(media.audio_fifo, &data, queued());
        return samples;
    }

    void finish() {
        EXPECT_EQ(av_write_trailer(media.output_format), 0);
        media.close_output_file();
    }
    const std::string& output() const { return output_; }

  private:
    std::string input_;
    std::string output_;

  public:
    libavIF media;
    PacketPtr packet{av_packet_alloc()};
};

// ---- The output stream ----

TEST(AddAudioStream, IsStereoAtTheSourcesRate) {
    TempDir dir;
    SoundJob job(movie_in(dir, 0.2, 44100, 1), dir.file("out.mov"));
    ASSERT_EQ(job.media.add_audio_stream(AV_CODEC_ID_PCM_S16LE, 0), 0);
    const AVCodecContext* encoder = job.media.audio_encoder_context;
    EXPECT_EQ(encoder->codec_id, AV_CODEC_ID_PCM_S16LE);
    EXPECT_EQ(encoder->sample_rate, 44100);
    EXPECT_EQ(encoder->sample_fmt, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(encoder->ch_layout.nb_channels, 2);
    EXPECT_EQ(encoder->flags & AV_CODEC_FLAG_GLOBAL_HEADER, 0);
    EXPECT_EQ(av_cmp_q(job.media.audio_stream->time_base, AVRational{1, 44100}), 0);
    EXPECT_EQ(job.media.audio_stream->id, 0);
    EXPECT_EQ(job.media.audio_stream->codecpar->sample_rate, 44100);
}

// PCM does not use it, but whoever asks for another encoder gets it.
TEST(AddAudioStream, TakesTheBitRateOrTheSources) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.2, 48000, 1, {"-c:a", "pcm_u8"});
    for (int bit_rate : {0, 96000}) {
        SoundJob job(input, dir.file("out.mov"));
        ASSERT_EQ(job.media.add_audio_stream(AV_CODEC_ID_AAC, bit_rate), 0);
        EXPECT_EQ(job.media.audio_encoder_context->bit_rate, bit_rate ? bit_rate : 8 * 48000);
    }
}

TEST(AddAudioStream, IsOfTheSecondInputWhereTheFirstHasNoSound) {
    TempDir dir;
    TempDir other;
    const std::string with_sound = movie_in(dir, 0.2, 44100);
    const std::string silent = other.file("silent.mov");
    make_movie(silent, "64x48", 2);
    libavIF media(silent.c_str(), with_sound.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    ASSERT_EQ(media.open_input_file(1), 0);
    ASSERT_GE(avformat_alloc_output_context2(&media.output_format, nullptr, "wav", nullptr), 0);
    EXPECT_EQ(media.add_audio_stream(AV_CODEC_ID_PCM_S16LE, 0), 0);
    EXPECT_EQ(media.init_swr_context(), 0);
    ASSERT_NE(media.audio_encoder_context, nullptr);
    EXPECT_EQ(media.audio_encoder_context->sample_rate, 44100);
}

TEST(AddAudioStream, SaysWhatItCannotFind) {
    TempDir dir;
    SoundJob job(movie_in(dir, 0.2));
    EXPECT_EQ(job.media.add_audio_stream(AV_CODEC_ID_NONE, 0), AVERROR_EXIT);
    EXPECT_STREQ(job.media.error_text, "Colud not find encoder");
}

// ---- Decoding into the queue ----

TEST(ReadDecodeStore, KeepsWhatBeginsInTheRangeAndTellsWhatLiesBehind) {
    TempDir dir;
    SoundJob job(movie_in(dir, 5));
    job.start();
    Samples expected;
    double first_behind = -1;
    int finished = 0;
    while (job.read() && !finished) {
        const double seconds = job.packet_seconds();
        const int samples = job.packet->size / 4;
        const int result = job.media.read_decode_stroe(0, job.packet.get(), &finished, 2.5f, 4.0f);
        if (seconds >= 2.5 && seconds <= 4.0) {
            EXPECT_EQ(result, samples);
            EXPECT_EQ(finished, 0);
            const size_t at = expected.size();
            expected.resize(at + static_cast<size_t>(2 * samples));
            std::memcpy(expected.data() + at, job.packet->data, static_cast<size_t>(job.packet->size));
        } else {
            EXPECT_EQ(result, 0);
            first_behind = seconds > 4.0 ? seconds : -1;
        }
    }
    EXPECT_EQ(finished, 1);
    EXPECT_GT(first_behind, 4.0);
    EXPECT_LT(first_behind, 4.1);
    EXPECT_EQ(job.take_queue(), expected);
}

// 32 packets of 1024 samples a second, so that their times are exact numbers.
TEST(ReadDecodeStore, BothBoundsLieInTheRange) {
    TempDir dir;
    SoundJob job(movie_in(dir, 0.5, 32768));
    job.start();
    std::vector<int> kept;
    int finished = 0;
    for (int number = 0; !finished && job.read(); ++number) {
        ASSERT_EQ(job.packet_seconds(), number / 32.0);
        if (job.media.read_decode_stroe(0, job.packet.get(), &finished, 3 / 32.0f, 6 / 32.0f) > 0) {
            kept.push_back(number);
        }
    }
    EXPECT_EQ(kept, (std::vector<int>{3, 4, 5, 6}));
}

// An open end is not without end: sound beyond 9999 seconds ends it.
TEST(ReadDecodeStore, AnOpenEndIsAt9999Seconds) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.5);
    const struct {
        int64_t moment;
        bool kept;
    } cases[] = {{9999 * 48000 - 1, true}, {9999 * 48000, true}, {9999 * 48000 + 1, false}};
    for (const auto& one : cases) {
        SoundJob job(input);
        job.start();
        ASSERT_TRUE(job.read());
        job.packet->pts = job.packet->dts = one.moment;
        int finished = 0;
        EXPECT_EQ(job.media.read_decode_stroe(0, job.packet.get(), &finished, 0, 0) > 0, one.kept) << one.moment;
        EXPECT_EQ(finished, one.kept ? 0 : 1) << one.moment;
    }
}

TEST(ReadDecodeStore, ABoundOf0OrLessIsOpen) {
    TempDir dir;
    const std::string input = movie_in(dir, 1);
    for (float bound : {0.0f, -1.0f}) {
        SoundJob job(input);
        job.start();
        int finished = 0;
        while (job.read()) {
            EXPECT_GE(job.media.read_decode_stroe(0, job.packet.get(), &finished, bound, bound), 0);
            EXPECT_EQ(finished, 0);
        }
        EXPECT_EQ(job.take_queue(), decoded_samples(input));
    }
}

TEST(ReadDecodeStore, SoundWithinTheRangeTakesTheEndBack) {
    TempDir dir;
    SoundJob job(movie_in(dir, 0.5));
    job.start();
    int finished = 1;
    ASSERT_TRUE(job.read());
    EXPECT_GT(job.media.read_decode_stroe(0, job.packet.get(), &finished, 0, 0), 0);
    EXPECT_EQ(finished, 0);
}

TEST(ReadDecodeStore, OfADamagedPacketFails) {
    TempDir dir;
    SoundJob job(movie_in(dir, 0.5));
    job.start();
    ASSERT_TRUE(job.read());
    job.packet->size = 3;  // less than one moment of two channels
    int finished = 0;
    const int result = job.media.read_decode_stroe(0, job.packet.get(), &finished, 0, 0);
    EXPECT_LT(result, 0);
    EXPECT_EQ(job.media.error_code, result);
    EXPECT_STRNE(job.media.error_text, "");
}

// As loud in all as the one channel was: each gets 0.7071 of it.
TEST(ReadDecodeStore, ASingleChannelGoesToBoth) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.5, 48000, 1);
    SoundJob job(input);
    job.start();
    int finished = 0;
    while (job.read()) {
        ASSERT_GE(job.media.read_decode_stroe(0, job.packet.get(), &finished, 0, 0), 0);
    }
    const Samples mono = stored_samples(input);
    const Samples stereo = job.take_queue();
    ASSERT_EQ(stereo.size(), 2 * mono.size());
    for (size_t i = 0; i < mono.size(); ++i) {
        ASSERT_NEAR(stereo[2 * i], mono[i] * std::sqrt(0.5), 1) << i;
        ASSERT_EQ(stereo[2 * i], stereo[2 * i + 1]) << i;
    }
    EXPECT_EQ(stereo, decoded_samples(input));
}

// ---- Writing ----

TEST(LoadEncodeWrite, GoesInBlocksOf1000AndAShorterLastOne) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.1);  // 4800 moments
    SoundJob job(input);
    job.start();
    EXPECT_EQ(job.media.audio_encoder_context->frame_size, 0) << "PCM has none of its own";
    EXPECT_EQ(job.media.audio_block_size(), 1000);
    int finished = 0;
    while (job.read()) {
        job.media.read_decode_stroe(0, job.packet.get(), &finished, 0, 0);
    }
    std::vector<int> left;
    while (job.queued() > 0) {
        EXPECT_EQ(logged([&] { EXPECT_EQ(job.media.load_encode_write(), 0); }), "frame 1000\n");
        EXPECT_EQ(job.media.audio_encoder_context->frame_size, 1000);
        left.push_back(job.queued());
    }
    EXPECT_EQ(left, (std::vector<int>{3800, 2800, 1800, 800, 0}));
    EXPECT_EQ(job.media.audio_pts, 4800);
    int got = -1;
    EXPECT_EQ(job.media.encode_audio_frame(nullptr, &got), 0);
    EXPECT_EQ(got, 0) << "PCM holds nothing back";
    job.finish();
    EXPECT_EQ(stored_samples(job.output()), decoded_samples(input));
}

TEST(WriteAudio2, WritesWholeBlocksUntilTheEndIsReached) {
    TempDir dir;
    const std::string input = movie_in(dir, 1);
    SoundJob job(input);
    job.start();
    int finished = 0;
    int64_t moments = 0;
    while (!finished && job.read()) {
        const double seconds = job.packet_seconds();
        moments += seconds <= 0.5 ? job.packet->size / 4 : 0;
        EXPECT_EQ(job.media.wtire_audio2(0, job.packet.get(), &finished, 1000, 0, 0.5f), 0);
        EXPECT_EQ(job.packet->data, nullptr) << "the packet is released";
        EXPECT_EQ(job.queued(), moments % 1000) << "less than a block stays, at the end of the range too";
    }
    EXPECT_EQ(finished, 1);
    EXPECT_EQ(job.media.audio_pts, moments / 1000 * 1000);
    job.finish();
    EXPECT_EQ(stored_samples(job.output()), first_samples(decoded_samples(input), size_t{24000}));
}

TEST(WriteAudio2, AFailureClosesTheWholeOutput) {
    TempDir dir;
    SoundJob job(movie_in(dir, 0.5));
    job.start();
    ASSERT_TRUE(job.read());
    job.packet->size = 3;
    int finished = 0;
    const int result = job.media.wtire_audio2(0, job.packet.get(), &finished, 1000, 0, 0);
    EXPECT_LT(result, 0);
    EXPECT_EQ(job.media.output_format, nullptr);
    EXPECT_EQ(job.media.audio_encoder_context, nullptr);
    EXPECT_EQ(job.media.audio_fifo, nullptr);
    EXPECT_EQ(job.media.swr_context, nullptr);
    EXPECT_EQ(job.packet->data, nullptr);
}

// ---- The whole extraction ----

struct Extraction {
    int result = 0;
    ProgressCalls progress;
};

Extraction extract(libavIF* media, const std::string& output, const char* cancel = nullptr) {
    Extraction extraction;
    extraction.progress = progress_of([&](const ReportProgress& report) {
        extraction.result = media->write_audio(output.c_str(), cancel, 0, report);
    });
    return extraction;
}

TEST(WriteAudio, CarriesEverySample) {
    TempDir dir;
    for (int rate : {48000, 44100, 8000}) {
        const std::string input = movie_in(dir, 0.713, rate);
        for (const char* name : {"out.wav", "out.mov", "out.mp4", "out.WAV"}) {
            const std::string output = dir.file(name);
            libavIF media(input.c_str());
            ASSERT_EQ(media.open_input_file(0), 0);
            ASSERT_EQ(extract(&media, output).result, 0) << name << ": " << media.error_text;
            EXPECT_EQ(stored_samples(output), decoded_samples(input)) << name;
        }
    }
}

TEST(WriteAudio, OfFewerThan1000MomentsWritesThem) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.01);
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    ASSERT_EQ(extract(&media, dir.file("out.wav")).result, 0);
    EXPECT_EQ(stored_samples(dir.file("out.wav")).size(), 960u);
}

TEST(WriteAudio, TellsTheTotalAndEveryTenthPacket) {
    TempDir dir;
    const std::string input = movie_in(dir, 1);  // packets of 1024 moments
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_EQ(extract(&media, dir.file("out.wav")).progress, (ProgressCalls{{NQ360_STARTED, 46},
                                                                            {NQ360_PROGRESS, 10},
                                                                            {NQ360_PROGRESS, 20},
                                                                            {NQ360_PROGRESS, 30},
                                                                            {NQ360_PROGRESS, 40}}));
}

TEST(WriteAudio, OfManyPacketsTellsEveryHundredth) {
    TempDir dir;
    const std::string input = movie_in(dir, 25);  // 1172 packets
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    const ProgressCalls progress = extract(&media, dir.file("out.wav")).progress;
    ASSERT_EQ(progress.size(), 1u + 11);
    EXPECT_EQ(progress[0], (ProgressCall{NQ360_STARTED, 1171}));
    EXPECT_EQ(progress[1], (ProgressCall{NQ360_PROGRESS, 100}));
}

// Established: what the container tells is divided, whatever it is.
TEST(WriteAudio, AnnouncesADurationBelow0) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.5);
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    media.input_format[0]->streams[media.audio_stream_index[0]]->duration = -5000;
    EXPECT_EQ(extract(&media, dir.file("out.wav")).progress.at(0), (ProgressCall{NQ360_STARTED, -4}));
}

TEST(WriteAudio, WithoutDurationsCountsNoneBy0) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.5);
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    hide_durations = true;
    const Extraction extraction = extract(&media, dir.file("out.wav"));
    hide_durations = false;
    EXPECT_EQ(extraction.result, 0);
    ASSERT_FALSE(extraction.progress.empty());
    EXPECT_EQ(extraction.progress[0], (ProgressCall{NQ360_STARTED, 24000}));
    EXPECT_EQ(stored_samples(dir.file("out.wav")), decoded_samples(input));
}

TEST(WriteAudio, StopsAtTheMarkerWithAndWithoutACallback) {
    TempDir dir;
    const std::string input = movie_in(dir, 1);
    const std::string marker = dir.file("stop", Bytes());
    for (bool with_callback : {true, false}) {
        libavIF media(input.c_str());
        ASSERT_EQ(media.open_input_file(0), 0);
        const std::string output = dir.file("out.wav");
        const int result = with_callback ? extract(&media, output, marker.c_str()).result
                                         : media.write_audio(output.c_str(), marker.c_str(), 0, nullptr);
        EXPECT_EQ(result, AVERROR_EXIT);
        EXPECT_TRUE(media.cancelled);
        EXPECT_EQ(media.output_format, nullptr);
        EXPECT_LT(stored_samples(output).size(), 2 * 12000u) << "nothing behind the tenth packet";
    }
}

TEST(WriteAudio, ASecondOneOnTheSameObjectCountsTheTimesOn) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.5);
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    ASSERT_EQ(extract(&media, dir.file("one.wav")).result, 0);
    EXPECT_EQ(media.audio_pts, 24000);
    EXPECT_EQ(media.output_format, nullptr);
    ASSERT_EQ(media.open_input_file(0), 0);
    ASSERT_EQ(extract(&media, dir.file("two.wav")).result, 0);
    EXPECT_EQ(media.audio_pts, 48000);
}

TEST(WriteAudio, LogsItsSteps) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.1);
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    const std::string output = dir.file("out.wav");
    const std::string log = logged([&] { media.write_audio(output.c_str(), "marker", 128000, nullptr); });
    EXPECT_EQ(log, "[libavIF::write_audio] begin " + output +
                       " marker 128000\n"
                       "[libavIF::write_audio] format name : wav (WAV / WAVE (Waveform Audio))\n"
                       "[libavIF::write_audio] format ext : wav\n"
                       "[libavIF::write_audio] codec id : 65536\n"
                       "[libavIF::write_audio] codec name : pcm_s16le\n"
                       "[libavIF::write_audio] header errnum : 0\n"
                       "[libavIF::write_audio] output_frame_size : 1000\n"  // a picture
                       "[libavIF::write_audio] output_frame_size : 1000\nframe 1000\n"
                       "[libavIF::write_audio] output_frame_size : 1000\nframe 1000\n"
                       "[libavIF::write_audio] output_frame_size : 1000\nframe 1000\n"
                       "[libavIF::write_audio] output_frame_size : 1000\nframe 1000\n"
                       "[libavIF::write_audio] output_frame_size : 1000\n"
                       "[libavIF::write_audio] output_frame_size : 1000\nframe 1000\n");
}

TEST(WriteAudio, IntoAFileThatCannotHoldItFails) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.1);
    for (const char* name : {"out.jpg", "out", "out.xyz"}) {
        libavIF media(input.c_str());
        ASSERT_EQ(media.open_input_file(0), 0);
        const std::string output = dir.file(name);
        EXPECT_LT(media.write_audio(output.c_str(), nullptr, 0, nullptr), 0) << name;
        EXPECT_LT(media.error_code, 0);
        EXPECT_STRNE(media.error_text, "");
        EXPECT_FALSE(std::filesystem::exists(output)) << name;
    }
}

TEST(WriteAudio, IntoAFolderThatIsNotThereFails) {
    TempDir dir;
    const std::string input = movie_in(dir, 0.1);
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_EQ(media.write_audio(dir.file("missing/out.wav").c_str(), nullptr, 0, nullptr), AVERROR(ENOENT));
    EXPECT_STREQ(media.error_text, "No such file or directory");
    EXPECT_EQ(media.output_format, nullptr);
}

}  // namespace
