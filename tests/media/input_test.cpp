#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "support/media.h"
#include "support/real_function.h"
#include "support/temp_dir.h"

namespace {

bool hide_openh264 = false;

}  // namespace

// Takes the place of FFmpeg's function, for the library's calls too: an FFmpeg that was built without openh264.
extern "C" const AVCodec* avcodec_find_decoder_by_name(const char* name) {
    if (hide_openh264) {
        return nullptr;
    }
    static const auto real = test_support::real_function(&avcodec_find_decoder_by_name, "avcodec_find_decoder_by_name");
    return real(name);
}

namespace {

using namespace test_support;
using testing::HasSubstr;

std::string movie_in(const TempDir& dir, int frames = 5, const std::string& size = "64x48",
                     const std::vector<std::string>& codec = {"-c:v", "libx264", "-profile:v", "baseline"}) {
    const std::string path = dir.file("movie.mov");
    make_movie(path, size, frames, codec);
    return path;
}

std::string movie_with_sound_in(const TempDir& dir, const std::string& name = "sound.mov") {
    const std::string path = dir.file(name);
    run_ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=64x48:r=30000/1001", "-f", "lavfi", "-i", "sine=r=48000", "-t", "0.5",
                "-c:v", "mjpeg", "-c:a", "pcm_s16le", "-ac", "2", "file:" + path});
    return path;
}

// Large enough not to be taken for a stream of pictures, as a JPEG of a few bytes is.
std::string picture_in(const TempDir& dir, const std::string& name = "picture.jpg",
                       const std::string& size = "640x480") {
    const std::string path = dir.file(name);
    run_ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=" + size, "-q:v", "2", "-frames:v", "1", "-pix_fmt", "yuvj420p",
                "-update", "1", "-f", "image2", "-c:v", "mjpeg", "file:" + path});
    return path;
}

TEST(Input, FieldsAreEmptyAfterConstruction) {
    const libavIF media("a\"b\\c.mov", "second.mov");
    EXPECT_EQ(media.duration, -1.0);
    EXPECT_EQ(media.frame_count, 0);
    EXPECT_EQ(media.audio_codec_id, 0);
    EXPECT_EQ(media.error_code, 0);
    EXPECT_FALSE(media.cancelled);
    EXPECT_STREQ(media.input_path[0], "a\"b\\c.mov");
    EXPECT_EQ(media.input_name[0], "a\\\"b\\\\c.mov");
    EXPECT_EQ(media.input_name[1], "second.mov");
    EXPECT_FALSE(media.hasVideo(0) || media.hasVideo(1) || media.hasAudio(0) || media.hasAudio(1));
    EXPECT_FALSE(media.is_still[0] || media.is_still[1]);
}

TEST(Input, AMovieIsDescribed) {
    TempDir dir;
    const std::string path = movie_in(dir, 30);
    libavIF media(path.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_EQ(media.width, 64);
    EXPECT_EQ(media.height, 48);
    EXPECT_EQ(media.frame_count, 30);
    EXPECT_DOUBLE_EQ(media.duration, 30 * 1001 / 30000.0);
    EXPECT_TRUE(media.hasVideo(0));
    EXPECT_FALSE(media.is_still[0]);
}

TEST(Input, AMovieWithoutSoundLeavesTheSoundCodecAsItWas) {
    TempDir dir;
    const std::string with = movie_with_sound_in(dir);
    const std::string without = movie_in(dir);
    libavIF media(with.c_str(), without.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_TRUE(media.hasAudio(0));
    EXPECT_EQ(media.audio_codec_id, AV_CODEC_ID_PCM_S16LE);
    ASSERT_EQ(media.open_input_file(1), 0);
    EXPECT_FALSE(media.hasAudio(1));
    EXPECT_EQ(media.audio_stream_index[1], -1);
    EXPECT_EQ(media.audio_decoder[1], nullptr);
    EXPECT_EQ(media.audio_codec_id, AV_CODEC_ID_PCM_S16LE);
}

TEST(Input, TheInputOpenedLastIsTheOneDescribed) {
    TempDir dir;
    const std::string movie = movie_in(dir, 30, "64x48");
    const std::string picture = picture_in(dir, "p.jpg", "320x240");
    libavIF media(movie.c_str(), picture.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    ASSERT_EQ(media.open_input_file(1), 0);
    EXPECT_EQ(media.width, 320);
    EXPECT_EQ(media.height, 240);
    EXPECT_DOUBLE_EQ(media.duration, 0.04);
    EXPECT_EQ(media.frame_count, 0);
    EXPECT_FALSE(media.is_still[0]);
    EXPECT_TRUE(media.is_still[1]);
}

TEST(Input, AnyOtherNumberThan0IsTheSecondInput) {
    TempDir dir;
    const std::string movie = movie_in(dir);
    const std::string picture = picture_in(dir);
    libavIF media(movie.c_str(), picture.c_str());
    ASSERT_EQ(media.open_input_file(7), 0);
    EXPECT_EQ(media.input_format[0], nullptr);
    EXPECT_NE(media.input_format[1], nullptr);
    EXPECT_TRUE(media.hasVideo(-3));
}

TEST(Input, AJpegIsAStillOfOneTwentyFifthOfASecond) {
    TempDir dir;
    const std::string path = picture_in(dir);
    libavIF media(path.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_TRUE(media.is_still[0]);
    EXPECT_EQ(media.frame_count, 0);
    EXPECT_DOUBLE_EQ(media.duration, 0.04);
    EXPECT_EQ(media.video_decoder[0]->codec_id, AV_CODEC_ID_MJPEG);
    EXPECT_EQ(media.video_decoder[0]->pix_fmt, AV_PIX_FMT_YUVJ420P);
}

TEST(Input, APngCalledJpegHasNoDuration) {
    TempDir dir;
    const std::string path = dir.file("p.jpg");
    run_ffmpeg(
        {"-f", "lavfi", "-i", "testsrc2=s=64x48", "-frames:v", "1", "-f", "image2pipe", "-c:v", "png", "file:" + path});
    libavIF media(path.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_EQ(media.duration, -1.0);
    EXPECT_TRUE(media.is_still[0]);
}

TEST(Input, AMovieInFragmentsPassesForAStill) {
    TempDir dir;
    const std::string path = dir.file("fragmented.mp4");
    make_movie(path, "64x48", 5, {"-c:v", "libx264", "-movflags", "frag_keyframe+empty_moov+skip_trailer"});
    libavIF media(path.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_TRUE(media.is_still[0]);
}

TEST(Input, H264IsDecodedByOpenh264) {
    TempDir dir;
    const std::string path = movie_in(dir);
    libavIF media(path.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_STREQ(media.video_decoder[0]->codec->name, "libopenh264");
}

TEST(Input, WithoutOpenh264H264IsNotOpenedAtAll) {
    TempDir dir;
    const std::string path = movie_in(dir);
    libavIF media(path.c_str());
    hide_openh264 = true;
    const int result = media.open_input_file(0);
    hide_openh264 = false;
    EXPECT_EQ(result, AVERROR_EXIT);
    EXPECT_STREQ(media.error_text, "Not Found Video Codec");
    EXPECT_EQ(media.input_format[0], nullptr);
}

// ---- Failures ----

TEST(InputFailure, AFileWithoutPictures) {
    TempDir dir;
    const std::string path = dir.file("sound.mov");
    run_ffmpeg({"-f", "lavfi", "-i", "sine", "-t", "0.1", "file:" + path});
    libavIF media(path.c_str());
    EXPECT_EQ(media.open_input_file(0), AVERROR_EXIT);
    EXPECT_EQ(media.error_code, AVERROR_EXIT);
    EXPECT_STREQ(media.error_text, "Not Found Video Stream");
}

TEST(InputFailure, SoundOfAnUnknownKind) {
    TempDir dir;
    const std::string path = dir.file("unknown.mov");
    run_ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=64x48", "-f", "lavfi", "-i", "sine", "-t", "0.2", "-c:v", "mjpeg",
                "-c:a", "pcm_s16le", "file:" + path});
    Bytes bytes = read_file(path);
    const std::string whole = to_string(bytes);
    const size_t name = whole.find("sowt");  // what the sound is called in the movie
    ASSERT_NE(name, std::string::npos);
    overwrite(bytes, name, text("what"));
    write_file(path, bytes);
    libavIF media(path.c_str());
    EXPECT_LT(media.open_input_file(0), 0);
    EXPECT_EQ(media.input_format[0], nullptr);
}

TEST(InputFailure, IsFFmpegsCodeAndText) {
    TempDir dir;
    const std::string missing = dir.file("missing.mov");
    const std::string damaged = dir.file("damaged.mov", text("no movie, only a few words"));
    const std::string empty = dir.file("empty.mov", Bytes());
    const std::pair<std::string, int> cases[] = {
        {missing, AVERROR(ENOENT)}, {damaged, AVERROR_INVALIDDATA}, {dir.path(), AVERROR(EISDIR)}};
    for (const auto& [path, code] : cases) {
        libavIF media(path.c_str());
        EXPECT_EQ(media.open_input_file(0), code) << path;
        EXPECT_EQ(media.error_code, code);
        char expected[255];
        av_strerror(code, expected, sizeof expected);
        EXPECT_STREQ(media.error_text, expected);
    }
    libavIF media(empty.c_str());
    EXPECT_LT(media.open_input_file(0), 0);
}

// A pipe without a writer would block for ever.
TEST(InputFailure, APipeIsNotOpened) {
    TempDir dir;
    const std::string path = dir.file("pipe.mov");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    libavIF media(path.c_str());
    EXPECT_LT(media.open_input_file(0), 0);
}

TEST(InputFailure, OfTheFirstStepLeavesTheOtherInputOpenAndOfALaterOneClosesIt) {
    TempDir dir;
    const std::string movie = movie_in(dir);
    const std::string missing = dir.file("missing.mov");
    const std::string sound = dir.file("sound.mov");
    run_ffmpeg({"-f", "lavfi", "-i", "sine", "-t", "0.1", "file:" + sound});

    libavIF first(movie.c_str(), missing.c_str());
    ASSERT_EQ(first.open_input_file(0), 0);
    EXPECT_LT(first.open_input_file(1), 0);
    EXPECT_NE(first.input_format[0], nullptr);

    libavIF later(movie.c_str(), sound.c_str());
    ASSERT_EQ(later.open_input_file(0), 0);
    EXPECT_LT(later.open_input_file(1), 0);
    EXPECT_EQ(later.input_format[0], nullptr);
    EXPECT_EQ(later.video_decoder[0], nullptr);
}

TEST(InputFailure, LeavesNoFileOpen) {
    TempDir dir;
    const std::string movie = movie_in(dir);
    const std::string sound = dir.file("sound.mov");
    run_ffmpeg({"-f", "lavfi", "-i", "sine", "-t", "0.1", "file:" + sound});
    const auto open_files = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const auto before = open_files();
    for (int i = 0; i < 3; ++i) {
        libavIF media(movie.c_str(), sound.c_str());
        media.open_input_file(0);
        media.open_input_file(0);
        media.open_input_file(1);
    }
    EXPECT_EQ(open_files(), before);
}

TEST(Input, ClosesAnyNumberOfTimes) {
    TempDir dir;
    const std::string path = movie_with_sound_in(dir);
    libavIF media(path.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    media.close_input_file();
    EXPECT_EQ(media.input_format[0], nullptr);
    EXPECT_EQ(media.video_decoder[0], nullptr);
    EXPECT_EQ(media.audio_decoder[0], nullptr);
    media.close_input_file();
    EXPECT_EQ(media.open_input_file(0), 0) << "and may be opened again";
}

// ---- Names are names, not patterns or addresses ----

TEST(InputName, OfAnyCharactersOpensThatFile) {
    TempDir dir;
    const std::string picture = picture_in(dir);
    for (const char* name : {"100%.jpg", "p%03d.jpg", "a:b.jpg", "http:x.jpg", "-.jpg", "a b.jpg", "\"q\".jpg", "*.jpg",
                             "[1].jpg", "\xE3\x81\x82.jpg", "\xFF.jpg", "line\nbreak.jpg"}) {
        const std::string path = dir.file(name);
        std::filesystem::copy_file(picture, path);
        libavIF media(path.c_str());
        EXPECT_EQ(media.open_input_file(0), 0) << name;
        std::filesystem::remove(path);
    }
}

TEST(InputName, ThatLooksLikeAPatternDoesNotOpenItsMatches) {
    TempDir dir;
    picture_in(dir, "p001.jpg");
    for (const char* name : {"p%03d.jpg", "p*.jpg"}) {
        const std::string path = dir.file(name);
        libavIF media(path.c_str());
        EXPECT_EQ(media.open_input_file(0), AVERROR(ENOENT)) << name;
    }
}

TEST(InputName, OfMoreThan1023BytesOpensThatFile) {
    TempDir dir;
    const std::string picture = picture_in(dir);
    std::string folder = dir.path();
    while (folder.size() < 1100) {
        folder += "/" + std::string(200, 'd');
    }
    std::filesystem::create_directories(folder);
    const std::string path = folder + "/picture.jpg";
    std::filesystem::copy_file(picture, path);
    libavIF media(path.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    AVFrame* frame = nullptr;
    EXPECT_EQ(media.get_frame(&frame), 0);
    EXPECT_EQ(frame->width, 640);
    av_frame_free(&frame);
}

// ---- Decoding ----

struct OpenInput {
    explicit OpenInput(const std::string& file) : path(file), media(path.c_str()) {
        EXPECT_EQ(media.open_input_file(0), 0) << media.error_text;
    }
    // Reads the next packet, of whatever stream.
    bool read() {
        av_packet_unref(packet.get());
        return av_read_frame(media.input_format[0], packet.get()) >= 0;
    }

    std::string path;
    libavIF media;
    PacketPtr packet{av_packet_alloc()};
    FramePtr frame{av_frame_alloc()};
    int got = -1;
};

TEST(DecodePacket, UsesUpThePacketAndTellsTheBestTime) {
    TempDir dir;
    OpenInput input(movie_in(dir, 4));
    for (int64_t i = 0; i < 4; ++i) {
        ASSERT_TRUE(input.read());
        EXPECT_EQ(input.media.decode_packet(0, *input.packet, input.frame.get(), &input.got), input.packet->size);
        ASSERT_EQ(input.got, 1) << i;
        EXPECT_EQ(input.frame->pts, 1001 * i);
    }
}

TEST(DecodePacket, OfAnotherStreamCountsAsUsedUp) {
    TempDir dir;
    OpenInput input(movie_with_sound_in(dir));
    while (input.read() && input.packet->stream_index == input.media.video_stream_index[0]) {
    }
    EXPECT_EQ(input.media.decode_packet(0, *input.packet, input.frame.get(), &input.got), input.packet->size);
    EXPECT_EQ(input.got, 0);
}

TEST(DecodePacket, AnEmptyOneBringsOutWhatTheDecoderHolds) {
    TempDir dir;
    OpenInput input(movie_in(dir, 1, "64x48", {"-c:v", "libx264", "-profile:v", "main", "-bf", "2"}));
    ASSERT_TRUE(input.read());
    input.media.decode_packet(0, *input.packet, input.frame.get(), &input.got);
    EXPECT_EQ(input.got, 0) << "this kind of stream makes the decoder wait";
    av_packet_unref(input.packet.get());
    input.packet->stream_index = input.media.video_stream_index[0];
    EXPECT_EQ(input.media.decode_packet(0, *input.packet, input.frame.get(), &input.got), 0);
    EXPECT_EQ(input.got, 1);
    EXPECT_EQ(input.media.decode_packet(0, *input.packet, input.frame.get(), &input.got), 0) << "no error at the end";
    EXPECT_EQ(input.got, 0);
}

TEST(DecodePacket, ThatIsDamagedFails) {
    TempDir dir;
    OpenInput input(movie_in(dir));
    ASSERT_TRUE(input.read());
    std::fill_n(input.packet->data, input.packet->size, uint8_t{0xA5});
    const int result = input.media.decode_packet(0, *input.packet, input.frame.get(), &input.got);
    EXPECT_LT(result, 0);
    EXPECT_EQ(input.media.error_code, result);
    EXPECT_STRNE(input.media.error_text, "");
    EXPECT_EQ(input.got, 0);
}

std::vector<int64_t> received_times(OpenInput* input) {
    std::vector<int64_t> times;
    libavIF& media = input->media;
    bool more = true;
    while (more) {
        more = input->read();
        avcodec_send_packet(media.video_decoder[0], more ? input->packet.get() : nullptr);
        while (media.receive_frame_from_openh264(0, input->frame.get(), &input->got) == 0) {
            EXPECT_EQ(input->got, 1);
            times.push_back(input->frame->pts);
        }
        EXPECT_EQ(input->got, 0);
    }
    return times;
}

TEST(ReceiveFrame, CarriesTheTimeOfTheFrameBefore) {
    TempDir dir;
    for (const char* profile : {"baseline", "main"}) {
        OpenInput input(movie_in(dir, 4, "64x48", {"-c:v", "libx264", "-profile:v", profile, "-bf", "0"}));
        input.media.last_pts[0] = input.media.last_pts[1] = -1;
        EXPECT_EQ(received_times(&input), (std::vector<int64_t>{-1, 0, 1001, 2002})) << profile;
        EXPECT_EQ(input.media.last_pts[0], 3003);
        EXPECT_EQ(input.media.last_pts[1], -1) << "the other input's";
    }
}

TEST(ReceiveFrame, OfReorderedPicturesComesInTheOrderOfTheirTimes) {
    TempDir dir;
    OpenInput input(
        movie_in(dir, 7, "64x48", {"-c:v", "libx264", "-profile:v", "main", "-bf", "3", "-b_strategy", "0"}));
    input.media.last_pts[0] = 0;
    const std::vector<int64_t> times = received_times(&input);
    ASSERT_EQ(times.size(), 7u);
    for (size_t i = 1; i + 1 < times.size(); ++i) {
        EXPECT_EQ(times[i + 1] - times[i], 1001);
    }
}

TEST(ReceiveFrame, TellsWhenThereIsNoneYet) {
    TempDir dir;
    OpenInput input(movie_in(dir));
    EXPECT_EQ(input.media.receive_frame_from_openh264(0, input.frame.get(), &input.got), AVERROR(EAGAIN));
    EXPECT_EQ(input.got, 0);
    EXPECT_EQ(input.media.error_code, AVERROR(EAGAIN));
    EXPECT_THAT(input.media.error_text, HasSubstr("temporarily unavailable"));
}

TEST(GetFrame, IsTheFirstPictureOfAMovie) {
    TempDir dir;
    for (const char* profile : {"baseline", "main"}) {
        for (int frames : {1, 3}) {
            OpenInput input(movie_in(dir, frames, "64x48", {"-c:v", "libx264", "-profile:v", profile, "-bf", "2"}));
            AVFrame* frame = nullptr;
            EXPECT_EQ(input.media.get_frame(&frame), 0);
            EXPECT_EQ(frame->width, 64) << profile << " of " << frames << " frames";
            av_frame_free(&frame);
        }
    }
}

TEST(GetFrame, OfSoundThatComesFirstStillFindsThePicture) {
    TempDir dir;
    const std::string path = dir.file("first.mov");
    run_ffmpeg({"-f", "lavfi", "-i", "sine", "-f", "lavfi", "-i", "testsrc2=s=64x48", "-t", "0.5", "-map", "0:a",
                "-map", "1:v", "-c:v", "mjpeg", "-c:a", "pcm_s16le", "file:" + path});
    OpenInput input(path);
    EXPECT_EQ(input.media.video_stream_index[0], 1);
    AVFrame* frame = nullptr;
    EXPECT_EQ(input.media.get_frame(&frame), 0);
    EXPECT_EQ(frame->width, 64);
    av_frame_free(&frame);
}

// What a damaged card leaves of a picture.
TEST(GetFrame, OfAFileOfZerosFails) {
    TempDir dir;
    OpenInput input(dir.file("zeros.jpg", zeros(10000)));
    EXPECT_EQ(input.media.width, 0);
    AVFrame* frame = nullptr;
    EXPECT_EQ(input.media.get_frame(&frame), AVERROR_INVALIDDATA);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->width, 0);
    av_frame_free(&frame);
}

// ---- Frames of a range ----

TEST(DurationFrameCount, CountsFramesOf1001TicksUpToTheStreamsOwnCount) {
    TempDir dir;
    OpenInput input(movie_in(dir, 900, "16x16"));
    ASSERT_EQ(input.media.input_format[0]->streams[0]->time_base.den, 30000);
    EXPECT_EQ(input.media.duration_frame_count(0, 0, 10), 299);
    EXPECT_EQ(input.media.duration_frame_count(0, 0, 100), 900);
    EXPECT_EQ(input.media.duration_frame_count(0, 1, 10), 299 - 29);
    EXPECT_EQ(input.media.duration_frame_count(0, 0, 0), 0);
    EXPECT_EQ(input.media.duration_frame_count(0, 20, 10), 299 - 599);
}

// Compared without a sign, so that a negative end is a large one.
TEST(DurationFrameCount, ANegativeEndIsTheWholeStream) {
    TempDir dir;
    OpenInput input(movie_in(dir, 30, "16x16"));
    EXPECT_EQ(input.media.duration_frame_count(0, 0, -1), 30);
    EXPECT_EQ(input.media.duration_frame_count(0, -1, -1), 30 + 29);
}

TEST(DurationFrameCount, OfTimesWithoutAnEndSaturates) {
    TempDir dir;
    OpenInput input(movie_in(dir, 30, "16x16"));
    const float infinite = std::numeric_limits<float>::infinity();
    constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
    constexpr int64_t kLeast = std::numeric_limits<int32_t>::min();
    EXPECT_EQ(input.media.duration_frame_count(0, 0, infinite), 30);
    EXPECT_EQ(input.media.duration_frame_count(0, infinite, 1), 29 - kMost);
    EXPECT_EQ(input.media.duration_frame_count(0, -infinite, 1), 29 - kLeast);
    EXPECT_EQ(input.media.duration_frame_count(0, 0, 1e30f), 30);
    EXPECT_EQ(input.media.duration_frame_count(0, std::nanf(""), 1), 29);
    EXPECT_EQ(input.media.duration_frame_count(0, 0, std::nanf("")), 0);
}

TEST(DurationFrameCount, OfAStreamWithoutACountHasNoEnd) {
    TempDir dir;
    OpenInput input(picture_in(dir));
    EXPECT_EQ(input.media.duration_frame_count(0, 0, 100), 0);
    // 1 s of 1/25 is less than one frame of 1001 ticks; 100 s are 2.
    EXPECT_EQ(input.media.duration_frame_count(0, 100, 100), -2);
}

}  // namespace
