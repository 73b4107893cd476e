#include "api/reply.h"

#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "media/libavif.h"
#include "metadata/exif.h"
#include "support/comma_locale.h"
#include "support/replies.h"

using namespace test_support;

namespace {

// The text of a builder's reply, which goes back to the allocator.
std::string text_of(char* reply) {
    const std::unique_ptr<char, decltype(&std::free)> owner(reply, std::free);
    return reply;
}

// Odd names of files, and how they stand in a reply.
const char* const kOdd = "/a \"b\"\\c%s.jpg";
const std::string kOddEscaped = R"(/a \"b\"\\c%s.jpg)";

class ResultReply : public testing::Test {
  protected:
    ResultReply() {
        media.width = 3888;
        media.height = 1944;
        media.duration = 0.04;
        media.frame_count = 1;
        exif.maker = maker;
        exif.model = model;
        exif.orientation = 6;
        exif.capture_mode = 129;
        exif.multi_capture = 4000000000;
        exif.camera_orientation = 3;
        exif.datetime = datetime;
    }

    std::string reply(const char* path = "in.jpg", const char* thumbnail = "out.jpg", const char* software = "S",
                      const char* date = "fallback", bool target = true, bool created = true) {
        return text_of(make_json_result1(path, thumbnail, &exif, &media, software, date, target, created, "JPEG"));
    }

    char maker[16] = "MERIDAN OPTICS";
    char model[16] = "RT-KA500";
    char datetime[32] = "2026:01:02 03:04:05";
    libavIF media{"in.jpg"};
    _exif exif{nullptr, 0};
};

}  // namespace

// ---- Errors ----

TEST(Reply, ErrorAboutOneFile) {
    EXPECT_EQ(text_of(make_json_errstr1("in.jpg", "Could Not open file", "End of file", 10001, -541478725)),
              R"({"errnum":"10001","errstr":"Could Not open file","api_errnum":-541478725,)"
              R"("api_errstr":"End of file","movie_path":"in.jpg"})");
}

TEST(Reply, ErrorAboutSound) {
    EXPECT_EQ(text_of(make_json_errstr2("in.mov", "out.wav", "audio not writable", "", 20003, -1)),
              R"({"errnum":"20003","errstr":"audio not writable","api_errnum":-1,"api_errstr":"",)"
              R"("movie_path":"in.mov","audio_path":"out.wav"})");
}

TEST(Reply, ErrorAboutAnExport) {
    EXPECT_EQ(
        text_of(make_json_errstr3("1.mov", "2.mov", "out.mov", "Canceled", "Immediate exit requested", 39999, -1)),
        R"({"errnum":"39999","errstr":"Canceled","api_errnum":-1,"api_errstr":"Immediate exit requested",)"
        R"("movie_path1":"1.mov","movie_path2":"2.mov","export_path":"out.mov"})");
}

TEST(Reply, ErrorNumberIsATextAndTheFrameworksANumber) {
    const auto json = nlohmann::json::parse(text_of(make_json_errstr1("", "", "", 10000, -1)));
    EXPECT_TRUE(json.at("errnum").is_string());
    EXPECT_TRUE(json.at("api_errnum").is_number());
}

TEST(Reply, PathsAreEscapedInEveryReply) {
    const std::string quoted = "\"" + kOddEscaped + "\"";
    EXPECT_EQ(text_of(make_json_errstr1(kOdd, "e", "a", 1, 2)),
              R"({"errnum":"1","errstr":"e","api_errnum":2,"api_errstr":"a","movie_path":)" + quoted + "}");
    EXPECT_EQ(text_of(make_json_errstr2(kOdd, kOdd, "e", "a", 1, 2)),
              R"({"errnum":"1","errstr":"e","api_errnum":2,"api_errstr":"a","movie_path":)" + quoted +
                  R"(,"audio_path":)" + quoted + "}");
    EXPECT_EQ(text_of(make_json_errstr3(kOdd, kOdd, kOdd, "e", "a", 1, 2)),
              R"({"errnum":"1","errstr":"e","api_errnum":2,"api_errstr":"a","movie_path1":)" + quoted +
                  R"(,"movie_path2":)" + quoted + R"(,"export_path":)" + quoted + "}");
    EXPECT_EQ(text_of(make_json_result2(kOdd, kOdd, NQ360_FINISHED, 0)),
              R"({"movie_path":)" + quoted + R"(,"audio_path":)" + quoted + "}");
    EXPECT_EQ(text_of(make_json_result3(kOdd, kOdd, kOdd, NQ360_FINISHED, 0)),
              R"({"movie_path1":)" + quoted + R"(,"movie_path2":)" + quoted + R"(,"export_path":)" + quoted + "}");
}

TEST(Reply, ErrorTextsAreNotEscaped) {
    const std::string odd = R"(x"y\z)";
    const std::string texts = R"("errstr":"x"y\z","api_errnum":2,"api_errstr":"x"y\z")";
    for (const std::string& reply : {text_of(make_json_errstr1("", odd.c_str(), odd.c_str(), 1, 2)),
                                     text_of(make_json_errstr2("", "", odd.c_str(), odd.c_str(), 1, 2)),
                                     text_of(make_json_errstr3("", "", "", odd.c_str(), odd.c_str(), 1, 2))}) {
        EXPECT_NE(reply.find(texts), std::string::npos) << reply;
    }
}

TEST(Reply, NullTextsAreEmpty) {
    EXPECT_EQ(text_of(make_json_errstr1(nullptr, nullptr, nullptr, 1, 2)), error1(1, "", "", 2));
    EXPECT_EQ(text_of(make_json_errstr2(nullptr, nullptr, nullptr, nullptr, 1, 2)), error2(1, "", "", "", 2));
    EXPECT_EQ(text_of(make_json_errstr3(nullptr, nullptr, nullptr, nullptr, nullptr, 1, 2)),
              error3(1, "", "", "", "", 2));
    EXPECT_EQ(text_of(make_json_result2("m", nullptr, NQ360_FINISHED, 0)), R"({"movie_path":"m","audio_path":""})");
    EXPECT_EQ(text_of(make_json_result3("1", "2", nullptr, NQ360_FINISHED, 0)),
              R"({"movie_path1":"1","movie_path2":"2","export_path":""})");
}

TEST(Reply, LongReplyIsCutNotEnlarged) {
    const std::string path(20000, 'p');
    const std::string whole = error1(10000, "Input file not exiists", path);
    EXPECT_EQ(text_of(make_json_errstr1(path.c_str(), "Input file not exiists", "", 10000, -1)),
              whole.substr(0, 10239));
    EXPECT_EQ(text_of(make_json_result3(path.c_str(), "", "", NQ360_FINISHED, 0)).size(), 10239u);
}

TEST(Reply, LongestReplyThatFitsIsWhole) {
    const size_t frame = error1(10000, "e", "").size();
    const std::string path(10239 - frame, 'p');
    EXPECT_EQ(text_of(make_json_errstr1(path.c_str(), "e", "", 10000, -1)), error1(10000, "e", path));
}

// ---- Results ----

TEST(Reply, FinishedHasNoFrameCount) {
    EXPECT_EQ(text_of(make_json_result2("in.mov", "out.wav", NQ360_FINISHED, ~0ULL)),
              R"({"movie_path":"in.mov","audio_path":"out.wav"})");
    EXPECT_EQ(text_of(make_json_result3("1.mov", "2.mov", "out.mov", NQ360_FINISHED, ~0ULL)),
              R"({"movie_path1":"1.mov","movie_path2":"2.mov","export_path":"out.mov"})");
}

TEST(Reply, EveryOtherStateHasAFrameCount) {
    for (const NQ360_STATE state : {NQ360_STARTED, NQ360_PROGRESS, NQ360_CANCELLED, NQ360_FAILED}) {
        EXPECT_EQ(text_of(make_json_result2("in.mov", "out.wav", state, 5000000000)),
                  R"({"movie_path":"in.mov","audio_path":"out.wav","frame_count":5000000000})");
        EXPECT_EQ(text_of(make_json_result3("1.mov", "2.mov", "out.mov", state, 299)),
                  R"({"movie_path1":"1.mov","movie_path2":"2.mov","export_path":"out.mov","frame_count":299})");
    }
}

TEST_F(ResultReply, HoldsAllValues) {
    EXPECT_EQ(reply(),
              R"({"width":3888,"height":1944,"duration":0.040,"frame_count":1,"maker":"MERIDAN OPTICS",)"
              R"("model":"RT-KA500","orientaion":6,"capture_mode":129,"multi_capture":4000000000,)"
              R"("camera_orientation":3,"youtube360_maker":"S","isTarget":true,"createdThumbnail":true,)"
              R"("movie_path":"in.jpg","thumbnail_path":"out.jpg","datetime":"2026:01:02 03:04:05","type":"JPEG"})");
}

TEST_F(ResultReply, AbsentValuesAreEmptyOrMinusOne) {
    const _exif nothing(nullptr, 0);
    EXPECT_EQ(text_of(make_json_result1("in.mov", nullptr, const_cast<_exif*>(&nothing), &media, nullptr, nullptr,
                                        false, false, "MOVIE")),
              R"({"width":3888,"height":1944,"duration":0.040,"frame_count":1,"maker":"","model":"","orientaion":-1,)"
              R"("capture_mode":-1,"multi_capture":-1,"camera_orientation":-1,"youtube360_maker":"",)"
              R"("isTarget":false,"createdThumbnail":false,"movie_path":"in.mov","thumbnail_path":"","datetime":"",)"
              R"("type":"MOVIE"})");
}

TEST_F(ResultReply, DateOfTheSoftwareStandsInForTheCameras) {
    EXPECT_EQ(nlohmann::json::parse(reply()).at("datetime"), "2026:01:02 03:04:05");
    exif.datetime = nullptr;
    EXPECT_EQ(nlohmann::json::parse(reply()).at("datetime"), "fallback");
}

TEST_F(ResultReply, SoftwareDateAndPathsAreEscaped) {
    exif.datetime = nullptr;
    const auto json = nlohmann::json::parse(reply(kOdd, kOdd, kOdd, kOdd));
    for (const char* key : {"movie_path", "thumbnail_path", "youtube360_maker", "datetime"}) {
        EXPECT_EQ(json.at(key), kOdd) << key;
    }
    char quoted[] = R"(a"b)";
    exif.datetime = quoted;
    EXPECT_EQ(nlohmann::json::parse(reply()).at("datetime"), R"(a"b)");
}

TEST_F(ResultReply, MakerAndModelAreNotEscaped) {
    char odd[] = R"(x"y\z)";
    exif.maker = odd;
    exif.model = odd;
    EXPECT_NE(reply().find(R"("maker":"x"y\z","model":"x"y\z")"), std::string::npos);
}

TEST_F(ResultReply, DurationHasThreeDecimals) {
    const auto duration = [this](double seconds) {
        media.duration = seconds;
        const std::string text = reply();
        const size_t at = text.find("\"duration\":") + 11;
        return text.substr(at, text.find(',', at) - at);
    };
    EXPECT_EQ(duration(-1.0), "-1.000");
    EXPECT_EQ(duration(0), "0.000");
    EXPECT_EQ(duration(1.0009), "1.001");
    EXPECT_EQ(duration(123456.789), "123456.789");
    EXPECT_EQ(duration(1e20), "100000000000000000000.000");
    // JSON has no words for these.
    EXPECT_EQ(duration(std::numeric_limits<double>::infinity()), "-1.000");
    EXPECT_EQ(duration(std::numeric_limits<double>::quiet_NaN()), "-1.000");
    EXPECT_EQ(duration(std::numeric_limits<double>::max()).size(), 309u + 4u);
}

// A decimal comma would break the JSON.
TEST_F(ResultReply, LocaleDoesNotChangeIt) {
    const std::string before = reply();
    const CommaLocale locale;
    EXPECT_EQ(reply(), before);
}
