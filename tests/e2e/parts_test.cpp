// Movies that are made in parts: the same bytes for any number of workers, and what a plain export shows.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/codes.h"
#include "support/command.h"
#include "support/media.h"
#include "support/movie_index.h"
#include "support/parts_export.h"
#include "support/samples.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

struct Packets {
    std::vector<int64_t> picture_times;
    std::vector<std::string> sound;
    std::vector<int64_t> sound_times;
};

Packets split_packets_of(const std::string& path) {
    Packets packets;
    for (const StoredPacket& packet : packets_of(path)) {
        if (packet.video) {
            packets.picture_times.push_back(packet.pts);
        } else {
            packets.sound.push_back(packet.bytes);
            packets.sound_times.push_back(packet.pts);
        }
    }
    return packets;
}

class Parts : public testing::Test {
  protected:
    Shot movies(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"--size", "1440", "--key-frames", "4"});
        return movies_in(dir, arguments);
    }

    std::string exported(PartsExport job, int workers, const std::string& name) {
        job.workers = workers;
        job.output = dir.file(name);
        std::string reply;
        EXPECT_EQ(job.run(&reply), 0) << reply;
        return job.output;
    }

    // With any number of workers the same bytes; and the frames, their times and the sound of an export without parts.
    void expect_same(const PartsExport& job, const std::vector<int>& more_workers = {3}) {
        const std::string plain = exported(job, 0, "plain.mov");
        const std::string one = exported(job, 1, "one.mov");
        EXPECT_EQ(codes_of(one), codes_of(plain));
        const Packets expected = split_packets_of(plain);
        const Packets found = split_packets_of(one);
        EXPECT_EQ(found.picture_times, expected.picture_times);
        EXPECT_EQ(found.sound_times, expected.sound_times);
        EXPECT_TRUE(found.sound == expected.sound);
        for (const int workers : more_workers) {
            EXPECT_TRUE(read_file(exported(job, workers, "more.mov")) == read_file(one)) << workers << " workers";
        }
    }

    TempDir dir;
};

// The numbers of the pictures that are key frames.
std::vector<int> key_frames_of(const std::string& path) {
    std::vector<int> keys;
    int number = 0;
    const nlohmann::json probed = probe(path);
    for (const nlohmann::json& packet : probed.at("packets")) {
        if (packet.at("codec_type") == "video") {
            if (packet.at("flags").get<std::string>()[0] == 'K') {
                keys.push_back(number);
            }
            ++number;
        }
    }
    return keys;
}

}  // namespace

TEST_F(Parts, OfWholeMoviesAreTheSameForAnyNumberOfWorkers) {
    PartsExport job;
    job.shot = movies({"--frames", "23", "--sound", "both"});
    for (job.source = -1; job.source <= 1; ++job.source) {
        SCOPED_TRACE(testing::Message() << "sound of " << job.source);
        expect_same(job, {2, 3, 7});
    }
}

TEST_F(Parts, EndWithTheShorterMovie) {
    PartsExport job;
    job.shot = movies({"--frames", "23", "--frames2", "12", "--sound", "both"});
    expect_same(job);
    EXPECT_EQ(codes_of(dir.file("one.mov")), equal_codes(0, 11));
}

TEST_F(Parts, OfARangeAreItsFrames) {
    // Ahead of a key frame, on one, behind one; the last frame, and a single one.
    for (const auto& [first, last] : {std::pair(3, 20), std::pair(4, 16), std::pair(5, 22), std::pair(9, 9)}) {
        SCOPED_TRACE(testing::Message() << first << " to " << last);
        PartsExport job;
        job.shot = movies({"--frames", "23", "--sound", "both"});
        job.start = time_of(first - 1);  // a frame's time is that of the one before
        job.end = time_of(last - 1);
        expect_same(job);
        EXPECT_EQ(codes_of(dir.file("one.mov")), equal_codes(first, last));
    }
}

TEST_F(Parts, OfAStillAndAMovieKeepTheStill) {
    const Shot stills = stills_in(dir, {"--size", "1440", "--code", "77"});
    const Shot pair = movies({"--frames", "13", "--sound", "2"});
    PartsExport job;
    job.shot = {stills.one, pair.two};
    job.source = 1;
    expect_same(job);
    job.shot = {pair.one, stills.two};
    expect_same(job);
    EXPECT_EQ(codes_of(dir.file("one.mov")).back(), CodePair(12, 77));
}

// Its frames are not known, so it counts as a still, but its sound is there.
TEST_F(Parts, OfAMovieInFragmentsHaveItsSound) {
    PartsExport job;
    job.shot = movies({"--frames", "13", "--codec", "mjpeg", "--sound", "1"});
    const std::string fragments = dir.file("fragments.mov");
    run_command({"ffmpeg", "-v", "error", "-i", job.shot.one, "-c", "copy", "-movflags", "frag_keyframe+empty_moov",
                 "-frag_duration", "100000", fragments});
    job.shot.one = fragments;
    expect_same(job);
    EXPECT_FALSE(split_packets_of(dir.file("one.mov")).sound.empty());
}

TEST_F(Parts, BeginWithAKeyFrame) {
    PartsExport job;
    job.shot = movies({"--frames", "23"});
    const std::vector<int> keys = key_frames_of(exported(job, 2, "parts.mov"));
    for (const int first : {0, 5, 10, 15, 20}) {
        EXPECT_NE(std::find(keys.begin(), keys.end(), first), keys.end()) << first;
    }
}

// With its first frames left out, what is behind a cut is the same: it depends on nothing before it.
TEST_F(Parts, DependOnNothingBefore) {
    PartsExport job;
    job.shot = movies({"--frames", "23", "--sound", "none"});
    const std::vector<StoredPacket> whole = packets_of(exported(job, 2, "whole.mov"));
    job.start = time_of(9);
    const std::vector<StoredPacket> tail = packets_of(exported(job, 2, "tail.mov"));
    ASSERT_EQ(whole.size(), 23U);
    ASSERT_EQ(tail.size(), 13U);
    for (size_t i = 0; i < tail.size(); ++i) {
        EXPECT_TRUE(tail[i].bytes == whole[i + 10].bytes) << i;
    }
}

// ---- Movies whose frames only decoding can tell ----

TEST_F(Parts, OfMoviesWithReorderedFramesAreTheSame) {
    const Shot shown = movies({"--frames", "23"});
    PartsExport job;
    job.shot = {dir.file("reordered1.mov"), dir.file("reordered2.mov")};
    const std::pair<std::string, std::string> files[] = {{shown.one, job.shot.one}, {shown.two, job.shot.two}};
    for (const auto& [from, to] : files) {
        std::vector<std::string> arguments = {"-i", "file:" + from};
        const std::vector<std::string> codec =
            camera_like({"-c:v", "libx264", "-profile:v", "main", "-bf", "2", "-g", "6", "-crf", "12"});
        arguments.insert(arguments.end(), codec.begin(), codec.end());
        arguments.push_back("file:" + to);
        run_ffmpeg(arguments);
    }
    expect_same(job);
}

TEST_F(Parts, OfAMovieOfOneKeyFrameAreTheSame) {
    PartsExport job;
    job.shot = movies_in(dir, {"--size", "1440", "--key-frames", "300", "--frames", "130", "--sound", "1"});
    job.part_pairs = 125;  // the second part lies further from the key frame than is decoded for nothing
    expect_same(job);
}

// Where the index calls every frame a key frame, parts must not begin with one that refers to frames before it.
TEST_F(Parts, OfAMovieWhoseIndexIsWrongAreThoseOfARightOne) {
    PartsExport job;
    job.shot = movies({"--frames", "23", "--sound", "1"});
    const std::string right = exported(job, 2, "right.mov");
    for (const std::string& movie : {job.shot.one, job.shot.two}) {
        Bytes bytes = read_file(movie);
        const std::string stss = "stss";
        const auto at = std::search(bytes.begin(), bytes.end(), stss.begin(), stss.end());
        ASSERT_NE(at, bytes.end());
        std::copy_n("free", 4, at);
        dir.file(fs::path(movie).filename().string(), bytes);
    }
    for (const int workers : {1, 3}) {
        EXPECT_TRUE(read_file(exported(job, workers, "wrong.mov")) == read_file(right)) << workers << " workers";
    }
}

// ---- Ends before the end ----

namespace {

std::string marker_path;
int64_t marked_at = 0;
std::vector<int64_t> told;

void mark(NQ360_STATE state, const char* json) {
    if (state != NQ360_PROGRESS) {
        return;
    }
    told.push_back(nlohmann::json::parse(json).at("frame_count").get<int64_t>());
    if (told.back() >= marked_at) {
        std::fclose(std::fopen(marker_path.c_str(), "w"));
    }
}

}  // namespace

TEST_F(Parts, AreCancelledAtAnyReport) {
    PartsExport job;
    job.shot = movies({"--frames", "45", "--sound", "1"});
    job.output = dir.file("out.mov");
    for (const int workers : {1, 7}) {
        for (marked_at = 10; marked_at <= 40; marked_at += 10) {
            SCOPED_TRACE(testing::Message() << workers << " workers, at " << marked_at);
            marker_path = dir.file("stop");
            fs::remove(marker_path);
            told.clear();
            job.workers = workers;
            int cancelled = 0;
            std::string reply;
            EXPECT_EQ(job.run(&reply, &cancelled, marker_path.c_str(), mark), -1);
            EXPECT_EQ(cancelled, 1) << reply;
            EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
        }
    }
}

TEST_F(Parts, TellTheProgressOfAPlainExport) {
    PartsExport job;
    job.shot = movies({"--frames", "45"});
    job.output = dir.file("out.mov");
    marked_at = 1000;
    for (const int workers : {0, 1, 7}) {
        told.clear();
        job.workers = workers;
        EXPECT_EQ(job.run(nullptr, nullptr, nullptr, mark), 0);
        EXPECT_EQ(told, (std::vector<int64_t>{10, 20, 30, 40})) << workers << " workers";
    }
}

TEST_F(Parts, OfADamagedMovieFailAsAPlainExport) {
    PartsExport job;
    job.shot = movies({"--frames", "23", "--sound", "none"});
    const std::vector<StoredPacket> packets = packets_of(job.shot.two);
    Bytes bytes = read_file(job.shot.two);
    const auto at = bytes.begin() + packets[13].position;
    std::fill_n(at + 4, static_cast<long>(packets[13].bytes.size()) - 4, 0xFF);
    dir.file(fs::path(job.shot.two).filename().string(), bytes);
    job.output = dir.file("out.mov");
    std::string plain;
    const int expected = job.run(&plain);
    for (const int workers : {1, 7}) {
        job.workers = workers;
        std::string reply;
        EXPECT_EQ(job.run(&reply), expected) << workers << " workers";
        EXPECT_EQ(reply, plain);
    }
    // The export starts over behind pair 10, which it does not do unasked.
    job.workers = 1;
    marked_at = 1000;
    told.clear();
    job.run(nullptr, nullptr, nullptr, mark);
    EXPECT_EQ(told, (std::vector<int64_t>{10, 10}));
}
