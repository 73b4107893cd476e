// The analysis with options: as the plain one, and what it tells and reads beyond that.
#include <algorithm>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/command.h"
#include "support/plain_media.h"
#include "support/samples.h"
#include "support/temp_dir.h"
#include "support/with_options.h"

using namespace test_support;
namespace fs = std::filesystem;

namespace {

class AnalyzeWith : public testing::Test {
  protected:
    nlohmann::json description(const std::string& path, const std::string* thumbnail = nullptr, int quick = 0) {
        NQ360_ANALYZE_OPTIONS options;
        NQ360_analyze_options_init(&options);
        options.input = path.c_str();
        options.thumbnail = thumbnail ? thumbnail->c_str() : nullptr;
        options.thumbnail_always = 1;
        options.thumbnail_width = 40;
        options.quick = quick;
        Recorded recorded;
        const Outcome outcome = with_options(options, NQ360_analyze_with, &recorded);
        EXPECT_EQ(outcome.result, outcome.state());
        return outcome.json();
    }

    TempDir dir;
};

}  // namespace

TEST_F(AnalyzeWith, TellsWhatThePlainOneTellsAndThatNothingIsUnread) {
    const Shot pictures = stills_in(dir, {"--size", "320"});
    const Shot movies = movies_in(dir, {"--size", "320", "--frames", "3", "--sound", "1"});
    for (const std::string& path : {pictures.one, movies.one}) {
        nlohmann::json told = description(path);
        EXPECT_EQ(told.at("unread"), nlohmann::json::array());
        told.erase("unread");
        EXPECT_EQ(told, analyze(path).json());
    }
}

TEST_F(AnalyzeWith, ReadsTheExifOfOtherCameras) {
    const std::string path = stills_in(dir, {"--size", "320"}).one;
    output_of({"exiftool", "-q", "-overwrite_original", "-all=", path});
    output_of({"exiftool", "-q", "-overwrite_original", "-ExifByteOrder=II", "-Make=Other", "-Model=Camera 7",
               "-Orientation#=6", path});
    const nlohmann::json told = description(path);
    EXPECT_EQ(told.at("maker"), "Other");
    EXPECT_EQ(told.at("model"), "Camera 7");
    EXPECT_EQ(told.at("orientaion"), 6);
    EXPECT_EQ(told.at("unread"), nlohmann::json::array());
    EXPECT_EQ(analyze(path).json().at("maker"), "") << "the plain one leaves them alone";
}

TEST_F(AnalyzeWith, TellsTheDateOfAKeptMovieAsOfAnyOtherFile) {
    const Shot shot = movies_in(dir, {"--size", "1440", "--frames", "3"});
    const std::string movie = dir.file("panorama.mov");
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, movie, 128, 64);
    options.keep_metadata = 1;
    ASSERT_EQ(export_with(options).result, NQ360_FINISHED);
    EXPECT_EQ(description(movie).at("datetime"), "2026:01:02 03:04:05");
}

TEST_F(AnalyzeWith, NamesWhatItCannotRead) {
    const std::string picture = stills_in(dir, {"--size", "320"}).one;
    const Bytes whole = read_file(picture);
    write_file(picture, slice(whole, 0, whole.size() - 2));
    EXPECT_EQ(description(picture).at("unread"), nlohmann::json::array({"picture"})) << "the end marker";

    Bytes damaged = whole;
    std::fill(damaged.begin() + static_cast<std::ptrdiff_t>(damaged.size() * 7 / 10), damaged.end() - 2, 0xFF);
    write_file(picture, damaged);
    const std::string thumbnail = dir.file("thumbnail.jpg");
    EXPECT_EQ(description(picture, &thumbnail).at("unread"), nlohmann::json::array({"picture"})) << "in its middle";
    EXPECT_EQ(description(picture).at("unread"), nlohmann::json::array({"picture"})) << "without a thumbnail too";

    write_file(picture, text("no picture"));
    EXPECT_EQ(description(picture).at("unread"), nlohmann::json::array({"picture"})) << "no JPEG at all";

    Bytes no_header = whole;
    const Bytes mark = text("Exif");
    const auto exif = std::search(no_header.begin(), no_header.end(), mark.begin(), mark.end());
    ASSERT_NE(exif, no_header.end());
    std::fill_n(exif + 6, 4, 0);
    write_file(picture, no_header);
    EXPECT_EQ(description(picture).at("unread"), nlohmann::json::array({"exif"}));

    const std::string movie = make_plain_movie(dir.file("faststart.mov"), "pcm_s16le");
    const std::string front = dir.file("front.mov");
    output_of({"ffmpeg", "-v", "error", "-y", "-i", movie, "-c", "copy", "-movflags", "faststart", front});
    const Bytes recorded = read_file(front);
    for (const size_t length : {recorded.size() * 2 / 3, recorded.size() - 1}) {
        write_file(front, slice(recorded, 0, length));
        EXPECT_EQ(description(front).at("unread"), nlohmann::json::array({"movie"})) << length;
    }
}

TEST_F(AnalyzeWith, QuickTellsTheSameOfWholeFiles) {
    const Shot stills = stills_in(dir, {"--size", "320"});
    const std::string plain = make_plain_picture(dir.file("plain.jpg"), "321x180");
    const std::string other = dir.file("other.jpg");
    fs::copy_file(make_plain_picture(dir.file("other.png"), "320x180"), other);
    const std::string progressive = dir.file("progressive.jpg");
    output_of({"jpegtran", "-progressive", "-outfile", progressive, plain});
    const std::string movie = make_plain_movie(dir.file("movie.mov"), "pcm_s16le");
    const std::string thumbnail = dir.file("thumbnail.jpg");
    for (const std::string& path : {stills.one, plain, other, progressive, movie, dir.file("none.jpg", text("none"))}) {
        EXPECT_EQ(description(path, nullptr, 1), description(path)) << path;
    }
    for (const std::string& path : {stills.one, plain, other, progressive, movie}) {
        EXPECT_EQ(description(path, &thumbnail, 1), description(path, &thumbnail)) << path;
    }
}

TEST_F(AnalyzeWith, QuickTellsOfCutsAndWithAThumbnailOfAllDamage) {
    const std::string picture = stills_in(dir, {"--size", "320"}).one;
    const std::string thumbnail = dir.file("thumbnail.jpg");
    const Bytes whole = read_file(picture);
    const nlohmann::json damaged = nlohmann::json::array({"picture"});
    for (const size_t missing : {1, 2, 20, 2000}) {
        write_file(picture, slice(whole, 0, whole.size() - missing));
        EXPECT_EQ(description(picture, nullptr, 1).at("unread"), damaged) << missing;
        EXPECT_EQ(description(picture, &thumbnail, 1).at("unread"), damaged) << missing;
    }
    // In the last tenth of the data, whose rows cannot be known then.
    Bytes broken = whole;
    std::fill(broken.end() - static_cast<std::ptrdiff_t>(whole.size() / 10), broken.end() - 2, 0xFF);
    write_file(picture, broken);
    EXPECT_EQ(description(picture).at("unread"), damaged);
    EXPECT_EQ(description(picture, &thumbnail, 1).at("unread"), damaged);
    EXPECT_EQ(description(picture, nullptr, 1).at("unread"), nlohmann::json::array()) << "as it says";
}

TEST_F(AnalyzeWith, BadRecordsHaveTheirReply) {
    EXPECT_EQ(NQ360_analyze_with(nullptr), NQ360_FAILED);
    NQ360_analyze_options_init(nullptr);
    NQ360_ANALYZE_OPTIONS options;
    NQ360_analyze_options_init(&options);
    Recorded recorded;
    EXPECT_EQ(with_options(options, NQ360_analyze_with, &recorded).json().at("errnum"), "10000") << "no input";
    options.thumbnail_width = -1;
    recorded = {};
    const nlohmann::json reply = with_options(options, NQ360_analyze_with, &recorded).json();
    EXPECT_EQ(reply.at("errnum"), "10005");
    EXPECT_EQ(reply.at("api_errstr"), "thumbnail_width: must be 0 to 32766, not -1");
    options.thumbnail_width = 0;
    options.quick = 2;
    recorded = {};
    EXPECT_EQ(with_options(options, NQ360_analyze_with, &recorded).json().at("api_errstr"),
              "quick: must be 0 to 1, not 2");
    options.quick = 0;
    options.size = 3;
    recorded = {};
    EXPECT_EQ(with_options(options, NQ360_analyze_with, &recorded).json().at("errnum"), "10005");
}
