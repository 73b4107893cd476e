// Exports of movies that fail: one reply says why, no file is left, and the inputs are as they were.
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/mount.h>
#include <sys/statvfs.h>

#include "support/limits.h"
#include "support/movie_export.h"
#include "support/movie_index.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

class Failures : public MovieExport {
  protected:
    // Runs the export, which must fail with "Could not write video" and these words of the framework, or with
    // whatever words it has when these are empty.
    void expect_unwritten(const std::string& words = "", std::function<void(const Reply&)> on_reply = nullptr) {
        expect_failed("Could not write video", words, std::move(on_reply));
    }

    // The same with a thrown text.
    void expect_thrown(const std::string& words, std::function<void(const Reply&)> on_reply = nullptr) {
        expect_failed("an unknown error occurred", words, std::move(on_reply));
    }

    void expect_failed(const std::string& errstr, const std::string& words,
                       std::function<void(const Reply&)> on_reply = nullptr) {
        const Bytes before1 = read_file(shot.one);
        const Bytes before2 = read_file(shot.two);
        const Outcome outcome = run(std::move(on_reply));
        ASSERT_EQ(outcome.state(), NQ360_FAILED) << outcome.text();
        const nlohmann::json reply = outcome.json();
        EXPECT_EQ(reply.at("errnum"), "39999");
        EXPECT_EQ(reply.at("errstr"), errstr);
        EXPECT_THAT(reply.at("api_errstr").get<std::string>(), HasSubstr(words));
        EXPECT_NE(reply.at("api_errstr"), "");
        EXPECT_LT(reply.at("api_errnum"), 0);
        EXPECT_FALSE(fs::exists(output)) << "a file is left";
        EXPECT_EQ(read_file(shot.one), before1);
        EXPECT_EQ(read_file(shot.two), before2);
    }

    Shot plain_movies(const std::string& sound = "1") { return lens_movies({"--frames", "30", "--sound", sound}); }
};

}  // namespace

// ---- No room ----

TEST_F(Failures, OfAFileThatMayNotGrowAnyFurther) {
    use(plain_movies());
    call.audio_source = 0;
    expect_finished();
    const auto whole = static_cast<rlim_t>(fs::file_size(output));
    fs::remove(output);
    for (const rlim_t room : {rlim_t{0}, rlim_t{1000}, whole / 2, whole - 3000}) {
        SCOPED_TRACE(room);
        const FileSizeLimit limit(room);
        expect_unwritten("File too large");
    }
}

// The metadata comes last, and is checked like the rest.
TEST_F(Failures, OfAFileWithoutRoomForItsMetadata) {
    use(plain_movies("none"));
    expect_finished();
    const auto whole = static_cast<rlim_t>(fs::file_size(output));
    fs::remove(output);
    for (const rlim_t missing : {1, 100, 500}) {
        SCOPED_TRACE(missing);
        const FileSizeLimit limit(whole - missing);
        expect_thrown("");
    }
}

namespace {

// A volume of a few megabytes more than an export asks for; null where the test may not mount one.
class SmallVolume {
  public:
    explicit SmallVolume(const std::string& path) : path_(path) {
        fs::create_directory(path_);
        mounted_ = mount("tmpfs", path_.c_str(), "tmpfs", 0, "size=80m") == 0;
    }
    ~SmallVolume() {
        if (mounted_) {
            umount2(path_.c_str(), MNT_DETACH);
        }
    }
    SmallVolume(const SmallVolume&) = delete;
    SmallVolume& operator=(const SmallVolume&) = delete;

    bool is_mounted() const { return mounted_; }

    // Leaves this many bytes free.
    void fill(uint64_t left) const {
        struct statvfs volume = {};
        statvfs(path_.c_str(), &volume);
        const uint64_t free_bytes = static_cast<uint64_t>(volume.f_bavail) * volume.f_frsize;
        write_file(path_ + "/rest", zeros(static_cast<size_t>(free_bytes - left)));
    }

  private:
    std::string path_;
    bool mounted_ = false;
};

}  // namespace

TEST_F(Failures, OfAVolumeThatFillsUpMeanwhile) {
    use(plain_movies());
    call.audio_source = 0;
    const SmallVolume volume(dir.file("volume"));
    if (!volume.is_mounted()) {
        GTEST_SKIP() << "no right to mount a volume; a limit on the file's size stands in for it above";
    }
    use_output("volume/out.mov");
    for (const uint64_t left : {0, 16384}) {
        fs::remove(dir.file("volume/rest"));
        expect_unwritten("No space left on device", [&](const Reply& reply) {
            if (reply.state == NQ360_STARTED) {
                volume.fill(left);
            }
        });
    }
}

// ---- Refused before anything is written ----

TEST_F(Failures, OfASizeThatNoMovieCanHave) {
    use(plain_movies());
    for (const auto& [width, height] : {std::pair(511, 256), std::pair(512, 255), std::pair(14, 16), std::pair(16, 14),
                                        std::pair(5760, 2880), std::pair(4096, 2306)}) {
        SCOPED_TRACE(testing::Message() << width << " x " << height);
        call.width = width;
        call.height = height;
        expect_unwritten("not " + std::to_string(width) + " x " + std::to_string(height));
    }
    for (const cv::Size least_and_most : {cv::Size(16, 16), cv::Size(4096, 2304)}) {
        call.width = least_and_most.width;
        call.height = least_and_most.height;
        expect_finished();
        EXPECT_EQ(size_of(output), least_and_most);
    }
}

TEST_F(Failures, OfAFileThatCannotBeAMovie) {
    use(plain_movies());
    const Shot movies = shot;
    const auto files = std::distance(fs::directory_iterator(dir.path()), {});
    for (const char* name : {"x.jpg", "x.wav", "x", "x.xyz", "x%03d.jpg", "x.png"}) {
        SCOPED_TRACE(name);
        use_output(name);
        expect_unwritten();
        EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), files) << "and no other file";
    }
    const std::string still = lens_still(1);
    use({still, movies.two});
    for (const char* name : {"y.jpg", "y.wav", "y"}) {
        SCOPED_TRACE(name);
        use_output(name);
        expect_unwritten();
    }
}

TEST_F(Failures, OfADirectoryInTheOutputsPlace) {
    use(plain_movies());
    fs::create_directory(output);
    const Outcome outcome = run();
    EXPECT_EQ(outcome.state(), NQ360_FAILED) << outcome.text();
    EXPECT_TRUE(fs::is_directory(output)) << "it is left alone";
}

TEST_F(Failures, OfAFolderThatVanishesBeforeTheFileIsOpened) {
    use(plain_movies());
    fs::create_directory(dir.file("folder"));
    use_output("folder/out.mov");
    expect_unwritten("No such file or directory", [&](const Reply& reply) {
        if (reply.state == NQ360_STARTED) {
            fs::remove_all(dir.file("folder"));
        }
    });
}

TEST_F(Failures, OfAFolderThatVanishesMeanwhile) {
    use(plain_movies());
    fs::create_directory(dir.file("folder"));
    use_output("folder/out.mov");
    expect_thrown("out.mov", [&](const Reply& reply) {
        if (reply.state == NQ360_PROGRESS) {
            fs::remove_all(dir.file("folder"));
        }
    });
}

// ---- Inputs that are not whole ----

namespace {

// A copy whose pictures from number `first` on are unreadable.
std::string damaged(const std::string& path, size_t first) {
    Bytes bytes = read_file(path);
    size_t picture = 0;
    for (const StoredPacket& packet : packets_of(path)) {
        if (packet.video && picture++ >= first) {
            overwrite(bytes, static_cast<size_t>(packet.position), Bytes(packet.bytes.size(), 0xA5));
        }
    }
    write_file(path + ".damaged.mov", bytes);
    return path + ".damaged.mov";
}

}  // namespace

TEST_F(Failures, OfADecoderHalfWay) {
    for (const char* codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        const Shot movies = lens_movies({"--frames", "12", "--codec", codec});
        use({damaged(movies.one, 6), movies.two});
        expect_unwritten();
        use({movies.one, damaged(movies.two, 6)});
        expect_unwritten();
    }
}

// With the index in front the movie opens, and reading ends in the middle: of a packet or between two.
TEST_F(Failures, OfAMovieThatWasCutOff) {
    for (const char* codec : {"h264-baseline", "h264-main", "mjpeg"}) {
        SCOPED_TRACE(codec);
        const Shot movies = lens_movies({"--frames", "12", "--codec", codec, "--moov-first", "--sound", "1"});
        const Bytes whole = read_file(movies.one);
        const std::vector<StoredPacket> packets = packets_of(movies.one);
        const StoredPacket& middle = packets[packets.size() / 2];
        const StoredPacket last = packets_of(movies.one, true).back();
        for (const size_t length :
             {static_cast<size_t>(middle.position), static_cast<size_t>(middle.position) + middle.bytes.size() / 2,
              static_cast<size_t>(last.position) + last.bytes.size() - 1}) {
            SCOPED_TRACE(length);
            const std::string cut = dir.file("cut.mov", slice(whole, 0, length));
            call.audio_source = -1;
            use({cut, movies.two});
            expect_unwritten("Invalid data found when processing input");
            call.audio_source = 1;
            use({movies.two, cut});
            expect_unwritten("Invalid data found when processing input");
        }
    }
}

// Of the sound nothing is missed that is not wanted.
TEST_F(Failures, OfAMovieThatWasCutOffSpareWhoDoesWithoutItsSound) {
    // Longer than a second behind the loss: before that the demuxer goes by places in the file.
    const Shot movies = lens_movies({"--frames", "45", "--sound", "both"});
    lose_packets(movies.one, false, 9);
    use(movies);
    for (const int source : {-1, 1}) {
        call.audio_source = source;
        expect_finished();
        EXPECT_EQ(codes_of(output), equal_codes(0, 44));
    }
    call.audio_source = 0;
    expect_unwritten("Invalid data found when processing input");
    lose_packets(movies.two, true, 6);
    call.audio_source = -1;
    expect_unwritten("Invalid data found when processing input");
}

// Where it breaks off matters only to who gets there.
TEST_F(Failures, OfACutOffMovieSparesTheRangeBefore) {
    const Shot movies = lens_movies({"--frames", "12", "--codec", "mjpeg", "--moov-first", "--sound", "1"});
    const Bytes whole = read_file(movies.one);
    use({dir.file("cut.mov", slice(whole, 0, whole.size() * 3 / 4)), movies.two});
    call.end1 = call.end2 = time_of(4);
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(0, 5));
}

TEST_F(Failures, OfAMovieWhosePicturesChangeTheirSize) {
    const std::string other = dir.file("other.mov");
    make_movie(other, "1936x1936", 2, {"-c:v", "mjpeg", "-q:v", "5"});
    const Shot movies = lens_movies({"--frames", "12", "--codec", "mjpeg", "--sound", "none"});
    const std::string list = dir.file("list", text("file '" + movies.one + "'\nfile '" + other + "'\n"));
    const std::string joined = dir.file("joined.mov");
    run_ffmpeg(
        {"-f", "concat", "-safe", "0", "-i", list, "-c", "copy", "-video_track_timescale", "30000", "file:" + joined});
    use({joined, joined});
    expect_thrown("input 1 has a frame of 1936x1936 where 1440x1440 was expected");
}

// A name that claims a picture gets no picture's metadata into a movie.
TEST_F(Failures, OfMoviesThatAreCalledPictures) {
    const Shot movies = plain_movies("none");
    use({movies.one + ".jpg", movies.two + ".jpg"});
    fs::copy_file(movies.one, shot.one);
    fs::copy_file(movies.two, shot.two);
    const Outcome outcome = run();
    EXPECT_EQ(outcome.state(), NQ360_FAILED) << outcome.text();
    EXPECT_FALSE(fs::exists(output));
}

// ---- After a failure ----

TEST_F(Failures, AreForgottenByTheNextExport) {
    use(plain_movies());
    {
        const FileSizeLimit limit(1000);
        expect_unwritten();
    }
    expect_finished();
    EXPECT_EQ(codes_of(output), equal_codes(0, 29));
}

TEST_F(Failures, TakeAnEarlierFileWithThem) {
    use(plain_movies());
    write_file(output, text("from before"));
    call.width = 511;
    expect_unwritten();
}
