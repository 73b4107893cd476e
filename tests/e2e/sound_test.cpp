// The sound of movies: carried into an export, and taken out into a file of its own.
#include "sample/sound.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/limits.h"
#include "support/log_lines.h"
#include "support/movie_export.h"
#include "support/movie_index.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

constexpr size_t kBlock = 1000;  // moments that are encoded at once

using SoundOfExport = MovieExport;

// What the export should hold: whole blocks, since the pictures end before another one is full.
Samples whole_blocks(const Samples& samples) {
    return first_samples(samples, samples.size() / 2 / kBlock * kBlock);
}

// The stream as the FFmpeg of the library describes it.
AVCodecParameters sound_parameters(const std::string& path) {
    const auto input = media_detail::open(path);
    const int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    return index < 0 ? AVCodecParameters{} : *input->streams[index]->codecpar;
}

}  // namespace

// ---- In an export ----

TEST_F(SoundOfExport, IsTheChosenInputsBitForBit) {
    use(lens_movies({"--frames", "12", "--sound", "both"}));
    for (const char* name : {"out.mov", "out.mp4"}) {
        use_output(name);
        for (int source : {0, 1}) {
            call.audio_source = source;
            expect_finished();
            const Samples original = decoded_samples(source == 0 ? shot.one : shot.two);
            ASSERT_EQ(original[1], sample::sound_sample(source + 1, 1, 0, 48000));
            EXPECT_EQ(stored_samples(output), whole_blocks(original)) << name << " from " << source;
            const AVCodecParameters parameters = sound_parameters(output);
            EXPECT_EQ(parameters.codec_id, AV_CODEC_ID_PCM_S16LE);
            EXPECT_EQ(parameters.sample_rate, 48000);
            EXPECT_EQ(parameters.ch_layout.nb_channels, 2);
        }
    }
}

TEST_F(SoundOfExport, IsReadByOtherProgramsToo) {
    use(lens_movies({"--frames", "12", "--sound", "1"}));
    call.audio_source = 0;
    expect_finished();
    EXPECT_EQ(decoded_samples(output), whole_blocks(decoded_samples(shot.one)));
}

TEST_F(SoundOfExport, IsAsLongAsThePicturesToWithinABlock) {
    for (int frames : {1, 2, 12}) {
        use(lens_movies({"--frames", std::to_string(frames), "--sound", "1"}));
        call.audio_source = 0;
        expect_finished();
        const double moments = static_cast<double>(stored_samples(output).size()) / 2;
        EXPECT_LE(moments, frames * kFrameSeconds * 48000 + 1) << frames;
        EXPECT_GT(moments, frames * kFrameSeconds * 48000 - kBlock) << frames;
    }
}

TEST_F(SoundOfExport, BeginsWithThePictures) {
    use(lens_movies({"--frames", "12", "--sound", "1"}));
    call.audio_source = 0;
    expect_finished();
    const nlohmann::json probed = probe(output);
    EXPECT_EQ(stream_of(probed, "video").at("start_time"), "0.000000");
    EXPECT_EQ(stream_of(probed, "audio").at("start_time"), "0.000000");
}

TEST_F(SoundOfExport, IsNoneForAnyOtherSource) {
    use(lens_movies({"--frames", "3", "--sound", "both"}));
    for (int source : {-1, 2, 1000, -2147483647 - 1}) {
        call.audio_source = source;
        expect_finished();
        EXPECT_EQ(stream_of(probe(output), "audio"), nullptr) << source;
    }
}

TEST_F(SoundOfExport, IsNoneFromAnInputThatHasNone) {
    use(lens_movies({"--frames", "3", "--sound", "2"}));
    call.audio_source = 0;
    expect_finished();
    EXPECT_EQ(stream_of(probe(output), "audio"), nullptr);
    use(lens_movies({"--frames", "3", "--sound", "none"}));
    for (int source : {0, 1}) {
        call.audio_source = source;
        expect_finished();
        EXPECT_EQ(stream_of(probe(output), "audio"), nullptr);
        EXPECT_EQ(codes_of(output), equal_codes(0, 2));
    }
}

TEST_F(SoundOfExport, KeepsTheSourcesRate) {
    for (const char* rate : {"44100", "8000"}) {
        use(lens_movies({"--frames", "6", "--sound", "1", "--sound-rate", rate}));
        call.audio_source = 0;
        expect_finished();
        EXPECT_EQ(sound_parameters(output).sample_rate, std::atoi(rate));
        EXPECT_EQ(stored_samples(output), whole_blocks(decoded_samples(shot.one))) << rate;
    }
}

TEST_F(SoundOfExport, OfTwoRatesHasTheChosenOne) {
    const Shot slow = lens_movies({"--frames", "6", "--sound", "1", "--sound-rate", "44100"});
    fs::rename(slow.one, dir.file("slow.mov"));
    const Shot fast = lens_movies({"--frames", "6", "--sound", "2", "--sound-rate", "48000"});
    use({dir.file("slow.mov"), fast.two});
    for (int source : {0, 1}) {
        call.audio_source = source;
        expect_finished();
        EXPECT_EQ(sound_parameters(output).sample_rate, source == 0 ? 44100 : 48000);
        EXPECT_EQ(stored_samples(output), whole_blocks(decoded_samples(source == 0 ? shot.one : shot.two)));
    }
}

TEST_F(SoundOfExport, OfOneChannelBecomesTwo) {
    use(lens_movies({"--frames", "6", "--sound", "1", "--sound-channels", "1"}));
    call.audio_source = 0;
    expect_finished();
    EXPECT_EQ(sound_parameters(output).ch_layout.nb_channels, 2);
    EXPECT_EQ(stored_samples(output), whole_blocks(decoded_samples(shot.one)));
}

// Decoders of two versions may round differently.
TEST_F(SoundOfExport, IsDecodedFromAac) {
    use(lens_movies({"--frames", "12", "--sound", "1", "--sound-codec", "aac"}, ".mp4"));
    call.audio_source = 0;
    expect_finished();
    const Samples found = stored_samples(output);
    const Samples original = decoded_samples(shot.one);
    ASSERT_GT(found.size() / 2, 15000u);
    ASSERT_LE(found.size(), original.size());
    int largest = 0;
    for (size_t i = 0; i < found.size(); ++i) {
        largest = std::max(largest, std::abs(found[i] - original[i]));
    }
    EXPECT_LE(largest, 2);
}

TEST_F(SoundOfExport, IsCutWithThePictures) {
    use(lens_movies({"--frames", "30", "--sound", "1"}));
    call.audio_source = 0;
    call.start1 = call.start2 = time_of(6);
    call.end1 = call.end2 = time_of(20);
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(7, 21));
    Samples expected;
    for (const StoredPacket& packet : packets_of(shot.one)) {
        if (!packet.video && packet.seconds >= time_of(6) && packet.seconds <= time_of(20)) {
            const auto* data = reinterpret_cast<const int16_t*>(packet.bytes.data());
            expected.insert(expected.end(), data, data + packet.bytes.size() / 2);
        }
    }
    EXPECT_EQ(stored_samples(output), whole_blocks(expected));
    EXPECT_NEAR(static_cast<double>(expected.size()) / 2 / 48000, 15 * kFrameSeconds, kFrameSeconds + 1024 / 48000.0);
}

// Each packet that begins in the range counts, but only whole blocks are written: 24 packets of 1024 moments begin in
// half a second.
TEST_F(SoundOfExport, OfHalfASecondIsHalfASecond) {
    use(lens_movies({"--frames", "30", "--sound", "1"}));
    call.audio_source = 0;
    call.end1 = call.end2 = 0.5f;
    expect_finished();
    EXPECT_EQ(stored_samples(output), first_samples(decoded_samples(shot.one), 24000));
}

// An end of 0 is an end: pictures 0 and 1, and what sound begins at 0.
TEST_F(SoundOfExport, OfARangeOfOneInstantIsShort) {
    use(lens_movies({"--frames", "12", "--sound", "1"}));
    call.audio_source = 0;
    call.end1 = call.end2 = 0;
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(0, 1));
    EXPECT_EQ(stored_samples(output).size() / 2, 1000u) << "a block of the packet of 1024";
}

// It is no end of the sound, only a packet less.
TEST_F(SoundOfExport, GoesOnBehindAnEmptyPacket) {
    use(lens_movies({"--frames", "30", "--sound", "1", "--sound-codec", "aac"}, ".mp4"));
    call.audio_source = 0;
    expect_finished();
    const size_t whole = stored_samples(output).size() / 2;
    ASSERT_GT(whole, 45000u);
    const size_t number = empty_packet(shot.one, false, 8);
    ASSERT_LT(number, 30u);
    expect_finished();
    const size_t rest = stored_samples(output).size() / 2;
    EXPECT_LT(rest, whole);
    EXPECT_GE(rest + 2 * kBlock, whole);
}

// A player that reads in order needs both at hand.
TEST_F(SoundOfExport, LiesBesideThePicturesThatItPlaysWith) {
    const Shot movies = lens_movies({"--frames", "30", "--sound", "1"});
    use({movies.one, lens_still(2)});
    call.width = 64;
    call.height = 32;
    call.audio_source = 0;
    for (const char* name : {"out.mov", "out.mp4"}) {
        use_output(name);
        expect_finished();
        std::vector<StoredPacket> packets = packets_of(output);
        std::sort(packets.begin(), packets.end(),
                  [](const StoredPacket& a, const StoredPacket& b) { return a.position < b.position; });
        double reached[2] = {0, 0};
        for (const StoredPacket& packet : packets) {
            reached[packet.video] = packet.seconds;
            EXPECT_LT(std::abs(reached[0] - reached[1]), 0.25) << name << " at byte " << packet.position;
        }
        EXPECT_GT(reached[0], 0.9);
        EXPECT_GT(reached[1], 0.9);
    }
}

// ---- In a file of its own ----

namespace {

class SoundFile : public MovieExport {
  protected:
    void SetUp() override { movie = lens_movies({"--frames", "12", "--sound", "1"}).one; }

    Outcome extract(int bit_rate = 0) {
        const Watchdog watchdog("the extraction to " + audio);
        return recorded([&](NQ360_CALLBACK callback) {
            return NQ360_get_audio(movie.c_str(), audio.c_str(), bit_rate, nullptr, callback);
        });
    }

    std::string movie;
    std::string audio = dir.file("sound.wav");
};

}  // namespace

TEST_F(SoundFile, HoldsEverySample) {
    const Samples original = decoded_samples(movie);
    for (const char* name : {"sound.wav", "sound.WAV", "sound.mov", "sound.mp4", "sound.caf"}) {
        audio = dir.file(name);
        const Outcome outcome = extract();
        EXPECT_EQ(outcome.result, 0);
        ASSERT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
        EXPECT_EQ(stored_samples(audio), original) << name;
    }
}

TEST_F(SoundFile, IsTheSameAtAnyBitRate) {
    extract();
    const Bytes first = read_file(audio);
    for (const int bit_rate : {64000, 128}) {
        EXPECT_EQ(extract(bit_rate).state(), NQ360_FINISHED);
        EXPECT_EQ(read_file(audio), first) << bit_rate;
    }
}

// Whatever FFmpeg thinks of it.
TEST_F(SoundFile, IsWrittenInSilenceAtAnyBitRate) {
    for (const int bit_rate : {128, -1, INT_MIN, INT_MAX}) {
        Outcome outcome;
        expect_own_lines_only(logged([&] { outcome = extract(bit_rate); }));
        EXPECT_EQ(outcome.state(), bit_rate < 0 ? NQ360_FAILED : NQ360_FINISHED) << bit_rate << outcome.text();
    }
}

TEST_F(SoundFile, GoesOnBehindAnEmptyPacket) {
    movie = lens_movies({"--frames", "30", "--sound", "1", "--sound-codec", "aac"}, ".mp4").one;
    extract();
    const size_t whole = stored_samples(audio).size() / 2;
    ASSERT_GT(whole, 45000u);
    ASSERT_LT(empty_packet(movie, false, 8), 30u);
    EXPECT_EQ(extract().state(), NQ360_FINISHED);
    EXPECT_EQ(stored_samples(audio).size() / 2, whole - 1024);
}

// Of the pictures none is missed.
TEST_F(SoundFile, OfAMovieThatWasCutOffFailsIfItsSoundWas) {
    // Longer than a second behind the loss: before that the demuxer goes by places in the file. And some pictures are
    // lost between two packets of sound.
    movie = lens_movies({"--frames", "60", "--sound", "1", "--sound-rate", "8000"}).one;
    extract();
    const Samples original = stored_samples(audio);
    lose_packets(movie, true, 6);
    EXPECT_EQ(extract().state(), NQ360_FINISHED);
    EXPECT_EQ(stored_samples(audio), original);
    lose_packets(movie, false, 9);
    EXPECT_EQ(extract().end(),
              (Reply{NQ360_FAILED, error2(29999, "Colud Not Write Audio!!", movie, audio, AVERROR_INVALIDDATA,
                                          "Invalid data found when processing input")}));
    EXPECT_FALSE(fs::exists(audio));
}

TEST_F(SoundFile, IsReportedInPackets) {
    const auto counted = [&](int count) {
        return R"({"movie_path":")" + movie + R"(","audio_path":")" + audio + R"(","frame_count":)" +
               std::to_string(count) + "}";
    };
    const std::vector<Reply> expected = {
        {NQ360_STARTED, counted(18)},
        {NQ360_PROGRESS, counted(10)},
        {NQ360_FINISHED, R"({"movie_path":")" + movie + R"(","audio_path":")" + audio + R"("})"}};
    EXPECT_EQ(extract().replies, expected);
}

TEST_F(SoundFile, OfAnotherKindFails) {
    for (const char* name : {"sound.jpg", "sound", "sound.xyz"}) {
        audio = dir.file(name);
        const Outcome outcome = extract();
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.state(), NQ360_FAILED) << outcome.text();
        EXPECT_EQ(outcome.json().at("errnum"), "29999");
        EXPECT_EQ(outcome.json().at("errstr"), "Colud Not Write Audio!!");
        EXPECT_LT(outcome.json().at("api_errnum"), 0);
        EXPECT_NE(outcome.json().at("api_errstr"), "");
        EXPECT_FALSE(fs::exists(audio));
    }
}

TEST_F(SoundFile, WithoutRoomInTheMiddleFailsAndIsRemoved) {
    movie = dir.file("long.mov");
    run_ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=64x48:r=2", "-f", "lavfi", "-i", "sine=r=48000", "-t", "20", "-c:v",
                "mjpeg", "-c:a", "pcm_s16le", "-ac", "2", "file:" + movie});
    Outcome outcome;
    {
        const FileSizeLimit limit(1000000);  // of 3,840,000 bytes of sound
        outcome = extract();
    }
    EXPECT_EQ(outcome.state(), NQ360_FAILED) << outcome.text();
    EXPECT_EQ(outcome.json().at("errstr"), "Colud Not Write Audio!!");
    EXPECT_EQ(outcome.json().at("api_errstr"), "File too large");
    EXPECT_FALSE(fs::exists(audio));
}
