// The extraction of sound with options.
#include <cmath>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/media.h"
#include "support/plain_media.h"
#include "support/temp_dir.h"
#include "support/with_options.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

class GetAudioWith : public testing::Test {
  protected:
    GetAudioWith() {
        NQ360_audio_options_init(&options);
        options.movie = movie.c_str();
        options.output = output.c_str();
    }

    void use_output(const std::string& name) {
        output = dir.file(name);
        options.output = output.c_str();
    }
    Outcome run() {
        recorded.replies.clear();
        return with_options(options, NQ360_get_audio_with, &recorded);
    }

    TempDir dir;
    std::string movie = make_plain_movie(dir.file("movie.mov"), "pcm_s16le");
    std::string output = dir.file("sound.wav");
    NQ360_AUDIO_OPTIONS options;
    Recorded recorded;
};

}  // namespace

TEST_F(GetAudioWith, WritesWhatThePlainOneWritesWithItsReplies) {
    const std::string plain = dir.file("plain.wav");
    const Outcome expected = get_audio(movie.c_str(), plain.c_str());
    const Outcome outcome = run();
    EXPECT_EQ(outcome.result, NQ360_FINISHED);
    ASSERT_EQ(outcome.replies.size(), expected.replies.size());
    for (size_t i = 0; i < outcome.replies.size(); ++i) {
        std::string text = outcome.replies[i].text;
        text.replace(text.find(output), output.size(), plain);
        EXPECT_EQ((Reply{outcome.replies[i].state, text}), expected.replies[i]);
    }
    EXPECT_TRUE(read_file(output) == read_file(plain));
    EXPECT_THAT(recorded.log, testing::Contains("[_NQT360_get_audio] ok"));
}

TEST_F(GetAudioWith, AacIsTheSameSound) {
    use_output("sound.mp4");
    options.sound_codec = NQ360_SOUND_AAC;
    ASSERT_EQ(run().result, NQ360_FINISHED);
    const nlohmann::json stream = stream_of(probe(output), "audio");
    EXPECT_EQ(stream.at("codec_name"), "aac");
    EXPECT_EQ(stream.at("channels"), 2);
    const Samples original = decoded_samples(movie);
    const Samples found = decoded_samples(output);
    ASSERT_GE(found.size(), original.size());
    double signal = 0;
    double noise = 0;
    for (size_t i = 0; i < original.size(); ++i) {
        signal += static_cast<double>(original[i]) * original[i];
        noise += static_cast<double>(found[i] - original[i]) * (found[i] - original[i]);
    }
    EXPECT_GT(10 * std::log10(signal / noise), 12) << "shifted by a frame of AAC nothing would be left of this";
    EXPECT_LT(found.size() - original.size(), 2 * 2048u);
}

TEST_F(GetAudioWith, FailureOrCancelLeavesWhatStoodThere) {
    write_file(output, text("earlier"));
    recorded.stop_at = 0;
    EXPECT_EQ(run().result, NQ360_CANCELLED);
    EXPECT_EQ(read_file(output), text("earlier"));
    recorded.stop_at = -1;
    const std::string silent = make_plain_movie(dir.file("silent.mov"), "");
    options.movie = silent.c_str();
    const Outcome outcome = run();
    EXPECT_EQ(outcome.result, NQ360_FAILED);
    EXPECT_EQ(outcome.json().at("errstr"), "Movie Has No Audio Stream!!");
    EXPECT_EQ(read_file(output), text("earlier"));
}

TEST_F(GetAudioWith, BadRecordsHaveTheirReply) {
    EXPECT_EQ(NQ360_get_audio_with(nullptr), NQ360_FAILED);
    NQ360_audio_options_init(nullptr);
    options.sound_codec = 5;
    EXPECT_EQ(run().json().at("api_errstr"), "sound_codec: must be 0 to 1, not 5");
    options.sound_codec = 0;
    options.bit_rate = 7999;
    EXPECT_EQ(run().json().at("api_errstr"), "bit_rate: must be 8000 to 512000, not 7999");
    options.bit_rate = 0;
    options.size = 0;
    EXPECT_EQ(run().json().at("errnum"), "20005");
    options.size = sizeof(options);
    options.movie = nullptr;
    EXPECT_EQ(run().json().at("errnum"), "20000");
    options.movie = movie.c_str();
    options.output = nullptr;
    EXPECT_EQ(run().json().at("errstr"), "Audio Path is NULL!!");
}
