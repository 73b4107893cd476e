// The entry of the sound's extraction; what it writes is tested with the writer.
#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

extern "C" {
#include <libavutil/error.h>
}

#include "nq360.h"
#include "support/child.h"
#include "support/command.h"
#include "support/failing_new.h"
#include "support/fake_volume.h"
#include "support/open_files.h"
#include "support/plain_media.h"
#include "support/replies.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class GetAudio : public testing::Test {
  protected:
    std::string any_file() { return dir.file("any.mov", text("any")); }
    std::string movie() { return make_plain_movie(dir.file("movie.mov"), "pcm_s16le"); }
    std::string silent_movie() { return make_plain_movie(dir.file("silent.mov"), ""); }

    Outcome run(const std::string& input, const std::string* marker = nullptr,
                std::function<void(const Reply&)> on_reply = nullptr) const {
        return get_audio(input.c_str(), audio.c_str(), marker ? marker->c_str() : nullptr, std::move(on_reply));
    }
    Reply failure(int errnum, const std::string& errstr, const std::string& input, int api_errnum = -1,
                  const std::string& api_errstr = "", NQ360_STATE state = NQ360_FAILED) const {
        return {state, error2(errnum, errstr, input, audio, api_errnum, api_errstr)};
    }

    TempDir dir;
    std::string audio = dir.file("sound.wav");
};

}  // namespace

// ---- The entry's checks ----

TEST_F(GetAudio, MissingInput) {
    const std::string missing = dir.file("missing.mov");
    write_file(audio, text("earlier"));
    const Outcome outcome = run(missing);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.replies, ElementsAre(failure(20000, "Input file not exiists", missing)));
    EXPECT_EQ(read_file(audio), text("earlier"));
    EXPECT_EQ(get_audio(nullptr, audio.c_str()).text(), error2(20000, "Input file not exiists", "", audio));
    EXPECT_EQ(get_audio(missing.c_str(), nullptr).text(), error2(20000, "Input file not exiists", missing, ""));
}

TEST_F(GetAudio, UnwritableFolder) {
    audio = dir.file("no folder") + "/sound.wav";
    const std::string input = any_file();
    const Outcome outcome = run(input);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.replies, ElementsAre(failure(20003, "audio not writable", input)));
}

TEST_F(GetAudio, ReadOnlyFolder) {
    const std::string input = any_file();
    fs::permissions(dir.path(), fs::perms(0555));
    EXPECT_TRUE(true_unprivileged([&] { return run(input).end() == failure(20003, "audio not writable", input); }));
}

TEST_F(GetAudio, OutputOnTheInputOrTheMarkerIsRefusedAndNothingTouched) {
    const std::string input = movie();
    const std::string marker = dir.file("marker", text("marker"));
    for (const std::string& own : {input, marker}) {
        const Bytes before = read_file(own);
        const std::string hard = own + ".hard";
        const std::string symbolic = own + ".symbolic";
        fs::create_hard_link(own, hard);
        fs::create_symlink(own, symbolic);
        for (const std::string& path : {own, hard, symbolic}) {
            audio = path;
            EXPECT_THAT(run(input, &marker).replies, ElementsAre(failure(20003, "audio not writable", input)));
            EXPECT_EQ(read_file(own), before);
            EXPECT_TRUE(fs::exists(path));
        }
    }
    // A marker that is not there yet.
    audio = dir.file("sound.wav");
    EXPECT_EQ(run(input, &audio).json().at("errnum"), "20003");
}

TEST_F(GetAudio, FiftyMebibytesAreFullWhateverTheInputsSize) {
    const std::string input = any_file();
    {
        FakeVolume volume(52428800);
        EXPECT_THAT(run(input).replies, ElementsAre(failure(20004, "disk is full", input)));
    }
    FakeVolume volume(52428801);
    EXPECT_EQ(run(input).json().at("errnum"), "20001");
    EXPECT_EQ(volume.asked(), dir.path());
}

TEST_F(GetAudio, NeedsNoCallback) {
    EXPECT_EQ(NQ360_get_audio(movie().c_str(), audio.c_str(), 0, nullptr, nullptr), 0);
    EXPECT_GT(fs::file_size(audio), 44u);
    EXPECT_EQ(NQ360_get_audio(any_file().c_str(), audio.c_str(), 0, nullptr, nullptr), 0);
    EXPECT_FALSE(fs::exists(audio));
}

// ---- Failures ----

TEST_F(GetAudio, InputThatCannotBeOpened) {
    const std::string folder = dir.file("folder.mov");
    const std::string pipe = dir.file("pipe.mov");
    fs::create_directory(folder);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_THAT(run(folder).replies,
                ElementsAre(failure(20001, "Cold Not Open File", folder, AVERROR(EISDIR), "Is a directory")));
    EXPECT_THAT(run(pipe).replies,
                ElementsAre(failure(20001, "Cold Not Open File", pipe, AVERROR(EINVAL), "Invalid argument")));
    const std::string input = any_file();
    EXPECT_THAT(run(input).replies, ElementsAre(failure(20001, "Cold Not Open File", input, AVERROR_INVALIDDATA,
                                                        "Invalid data found when processing input")));
}

TEST_F(GetAudio, FailureRemovesAnEarlierFileToo) {
    write_file(audio, text("earlier"));
    run(any_file());
    EXPECT_FALSE(fs::exists(audio));
}

TEST_F(GetAudio, MovieWithoutSound) {
    const std::string input = silent_movie();
    const std::string errstr = "Movie Has No Audio Stream!!";
    const Outcome outcome = run(input);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.replies, ElementsAre(failure(20001, errstr, input, 0, "")));
    // Told before the missing path.
    EXPECT_EQ(get_audio(input.c_str(), nullptr).text(), error2(20001, errstr, input, "", 0, ""));
}

TEST_F(GetAudio, NullPathIsToldAfterTheMovieWasOpened) {
    const std::string input = movie();
    FakeVolume volume(0);
    const Outcome outcome = get_audio(input.c_str(), nullptr);
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.replies,
                ElementsAre(Reply{NQ360_FAILED, error2(20001, "Audio Path is NULL!!", input, "", -1, "")}));
    EXPECT_EQ(volume.asked(), "");
    EXPECT_EQ(get_audio(any_file().c_str(), nullptr).json().at("errstr"), "Cold Not Open File");
}

TEST_F(GetAudio, SoundThatCannotBeWritten) {
    const std::string input = movie();
    audio = dir.file("sound.xyz");
    const Outcome outcome = run(input);
    EXPECT_EQ(outcome.result, 0);
    const auto json = outcome.json();
    EXPECT_EQ(outcome.state(), NQ360_FAILED);
    EXPECT_EQ(json.at("errnum"), "29999");
    EXPECT_EQ(json.at("errstr"), "Colud Not Write Audio!!");
    EXPECT_LT(json.at("api_errnum"), 0);
    EXPECT_NE(json.at("api_errstr"), "");
    EXPECT_FALSE(fs::exists(audio));
}

// ---- Ends ----

// Each packet of MP3 sound says anew how many channels it has; the resampler was set up for the first.
TEST_F(GetAudio, SoundThatChangesItsChannelsEndsInAReply) {
    Bytes changing;
    for (const char* channels : {"2", "1"}) {
        const std::string part = dir.file(std::string("part") + channels + ".mp3");
        output_of({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=duration=0.5", "-ac", channels, "-c:a",
                   "libmp3lame", "-write_xing", "0", "-id3v2_version", "0", part});
        const Bytes bytes = read_file(part);
        changing.insert(changing.end(), bytes.begin(), bytes.end());
    }
    const std::string input = dir.file("changing.mov");
    output_of({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=s=64x64:d=1", "-i",
               dir.file("changing.mp3", changing), "-c:v", "mjpeg", "-c:a", "copy", input});
    const Outcome outcome = run(input);
    EXPECT_EQ(outcome.end(), failure(29999, "Colud Not Write Audio!!", input, AVERROR_INPUT_CHANGED, "Input changed"));
    EXPECT_FALSE(fs::exists(audio));
}

TEST_F(GetAudio, SuccessEndsWithoutAFrameCount) {
    const std::string input = movie();
    const Outcome outcome = run(input);
    EXPECT_EQ(outcome.result, 0);
    const std::string paths = R"({"movie_path":")" + input + R"(","audio_path":")" + audio + "\"";
    ASSERT_GE(outcome.replies.size(), 3u);
    EXPECT_EQ(outcome.replies.front().state, NQ360_STARTED);
    for (size_t i = 0; i + 1 < outcome.replies.size(); ++i) {
        EXPECT_EQ(outcome.replies[i].state, i == 0 ? NQ360_STARTED : NQ360_PROGRESS);
        EXPECT_THAT(outcome.replies[i].text, HasSubstr(paths + ",\"frame_count\":"));
    }
    EXPECT_EQ(outcome.end(), (Reply{NQ360_FINISHED, paths + "}"}));
}

TEST_F(GetAudio, MarkerCancelsAndThePartialFileGoes) {
    const std::string input = movie();
    const std::string marker = dir.file("marker");
    bool partial = false;
    const Outcome outcome = run(input, &marker, [&](const Reply& reply) {
        if (reply.state == NQ360_PROGRESS) {
            partial = fs::exists(audio);
            write_file(marker, {});
        }
    });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(partial);
    EXPECT_EQ(outcome.end(), failure(29999, "Canceled", input, -1, "Error number 1024 occurred", NQ360_CANCELLED));
    EXPECT_FALSE(fs::exists(audio));
    EXPECT_TRUE(fs::exists(marker));
}

// Established: an unexpected failure inside ends like a success, and its file stays.
TEST_F(GetAudio, UnexpectedFailureEndsAsFinishedAndKeepsTheFile) {
    const std::string input = movie();
    Outcome outcome;
    const std::string log = logged([&] {
        outcome = run(input, nullptr, [](const Reply& reply) {
            if (reply.state == NQ360_PROGRESS) {
                throw std::runtime_error("a reason\n");
            }
        });
    });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.end(), failure(29999, "an unknown error occurred", input, -1, "a reason ", NQ360_FINISHED));
    EXPECT_TRUE(fs::exists(audio));
    EXPECT_THAT(log, HasSubstr("[_NQT360_get_audio] ok\n[NQT360_get_audio] state = 0\n"));
}

// Each run ends with one reply. Only what fails outside the extraction returns -1 and takes the file away.
TEST_F(GetAudio, AllocationThatFailsIsReplied) {
    const std::string input = movie();
    const std::string reply = error2(29999, "an unknown error occurred", input, audio, -1, "std::bad_alloc");
    int failures_inside = 0;
    int failures_outside = 0;
    bool failed = true;
    for (long number = 0; failed; ++number) {
        fs::remove(audio);
        last_reply = {};
        int result = 0;
        {
            const FailingNew fault(number);
            result = NQ360_get_audio(input.c_str(), audio.c_str(), 0, nullptr, keep_last);
            failed = fault.failed();
        }
        ASSERT_EQ(last_reply.ends, 1) << number;
        if (result == -1) {
            ++failures_outside;
            EXPECT_EQ(last_reply.state, NQ360_FAILED);
            EXPECT_EQ(last_reply.text, reply);
            EXPECT_FALSE(fs::exists(audio)) << number;
        } else if (last_reply.text == reply) {
            ++failures_inside;
            EXPECT_EQ(last_reply.state, NQ360_FINISHED);
        } else {
            EXPECT_EQ(last_reply.state, NQ360_FINISHED) << last_reply.text;
            EXPECT_TRUE(fs::exists(audio)) << number;
        }
    }
    EXPECT_GT(failures_inside, 0);
    EXPECT_GT(failures_outside, 0);
}

TEST_F(GetAudio, LogTellsItsSteps) {
    const std::string input = movie();
    const auto tagged = [&](const std::string& path) {
        std::vector<std::string> lines;
        const std::string log = logged([&] { run(path); });
        for (size_t at = 0; at < log.size(); at = log.find('\n', at) + 1) {
            const std::string line = log.substr(at, log.find('\n', at) - at);
            if (line.find("NQT360") != std::string::npos) {
                lines.push_back(line);
            }
        }
        return lines;
    };
    EXPECT_THAT(tagged(input), ElementsAre("[NQT360_get_audio]", "[_NQT360_get_audio]", "[_NQT360_get_audio] ok",
                                           "[NQT360_get_audio] state = 0"));
    EXPECT_THAT(tagged(any_file()),
                ElementsAre("[NQT360_get_audio]", "[_NQT360_get_audio]", "[NQT360_get_audio] state = -1"));
    // Refused: not there, not writable, no room.
    const auto refused = ElementsAre("[NQT360_get_audio]", "[NQT360_get_audio] state = -1");
    EXPECT_THAT(tagged(dir.file("missing")), refused);
    const std::string writable = audio;
    audio = dir.file("no folder/sound.wav");
    EXPECT_THAT(tagged(input), refused);
    audio = writable;
    const FakeVolume full(0);
    EXPECT_THAT(tagged(input), refused);
}

TEST_F(GetAudio, NamesAreEscapedInItsReplies) {
    const std::string input = dir.file("movie \"x\" \\ 100%d.mov");
    fs::rename(movie(), input);
    audio = dir.file("sound \"y\" \\ %s.wav");
    for (const Reply& reply : run(input).replies) {
        EXPECT_EQ(reply.json().at("movie_path"), input);
        EXPECT_EQ(reply.json().at("audio_path"), audio);
    }
    EXPECT_TRUE(fs::exists(audio));
}

TEST_F(GetAudio, EndsWithAsManyOpenFiles) {
    const std::string good = movie();
    const std::string silent = silent_movie();
    run(good);
    const auto before = open_files();
    for (const std::string& input : {good, silent, any_file()}) {
        run(input);
        get_audio(input.c_str(), nullptr);
    }
    EXPECT_EQ(open_files(), before);
}
