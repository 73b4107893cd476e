// What joining tells of a record; what it makes of shares is tested from end to end.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/bytes.h"
#include "support/comma_locale.h"
#include "support/media.h"
#include "support/movie_index.h"
#include "support/samples.h"
#include "support/temp_dir.h"
#include "support/watchdog.h"
#include "support/with_options.h"

using namespace test_support;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class Join : public testing::Test {
  protected:
    Outcome join(const NQ360_JOIN_OPTIONS& options) const {
        Recorded recorded;
        return with_options(options, NQ360_join, &recorded);
    }

    NQ360_JOIN_OPTIONS options_for(const std::vector<const char*>& files, const std::string& output) const {
        NQ360_JOIN_OPTIONS options;
        NQ360_join_options_init(&options);
        options.files = files.data();
        options.file_count = files.size();
        options.output = output.c_str();
        return options;
    }

    TempDir dir;
};

}  // namespace

TEST_F(Join, RefusesABadRecordByItsField) {
    const std::string output = dir.file("out.mov");
    const std::vector<const char*> files = {"a", nullptr};
    const auto refused = [&](auto set) {
        NQ360_JOIN_OPTIONS options = options_for(files, output);
        options.file_count = 1;
        set(options);
        const Outcome outcome = join(options);
        EXPECT_EQ(outcome.state(), NQ360_FAILED);
        EXPECT_EQ(outcome.json().at("errnum"), "30005");
        return outcome.json().at("api_errstr").template get<std::string>();
    };
    EXPECT_THAT(refused([](auto& o) { o.size = 8; }), StartsWith("size: "));
    EXPECT_THAT(refused([](auto& o) { o.files = nullptr; }), StartsWith("files: "));
    EXPECT_THAT(refused([](auto& o) { o.file_count = 2; }), StartsWith("files: "));
    EXPECT_THAT(refused([](auto& o) { o.file_count = 0; }), StartsWith("file_count: "));
    EXPECT_EQ(NQ360_join(nullptr), NQ360_FAILED);
    NQ360_join_options_init(nullptr);
}

TEST_F(Join, RefusesOutputsThatCannotBeWritten) {
    const std::string part = dir.file("a.part", text("nq360 share 1\n"));
    const std::vector<const char*> files = {part.c_str()};
    const auto errnum = [&](const char* output) {
        NQ360_JOIN_OPTIONS options = options_for(files, "");
        options.output = output;
        const nlohmann::json reply = join(options).json();
        EXPECT_EQ(reply.at("movie_path1"), part);
        return reply.at("errnum").get<std::string>();
    };
    EXPECT_EQ(errnum(nullptr), "30003");
    EXPECT_EQ(errnum(part.c_str()), "30003");
    EXPECT_EQ(errnum(dir.path().c_str()), "30003");
    EXPECT_EQ(errnum(dir.file("none/out.mov").c_str()), "30003");
    EXPECT_EQ(read_file(part), text("nq360 share 1\n"));
}

// Options that are told in words, and a text that would break a reply that holds it as it is.
TEST_F(Join, NamesTheOptionThatDiffers) {
    const Shot shot = movies_in(dir, {"--size", "1440", "--frames", "3", "--sound", "none"});
    const std::string parts[] = {dir.file("1.part"), dir.file("2.part")};
    for (int i = 0; i < 2; ++i) {
        NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, parts[i], 128, 64);
        options.datetime = i == 0 ? "first" : "a \"second\"\\";
        options.part = i + 1;
        options.parts = 2;
        ASSERT_EQ(export_with(options).result, NQ360_FINISHED);
    }
    const std::string output = dir.file("out.mov");
    const nlohmann::json reply = join(options_for({parts[0].c_str(), parts[1].c_str()}, output)).json();
    EXPECT_EQ(reply.at("movie_path1"), parts[1]);
    EXPECT_EQ(reply.at("api_errstr"),
              "it is of another movie than the first one given: datetime is a \"second\"\\, not first");
}

// With everything that is written after the last picture: what lens 1 tells of the shot, and the index in front.
TEST_F(Join, KeepsTheMetadataOfTheExport) {
    const Shot shot = movies_in(dir, {"--size", "1440", "--frames", "3", "--sound", "1"});
    const std::string whole = dir.file("whole.mov");
    const std::string joined = dir.file("joined.mov");
    const std::string parts[] = {dir.file("1.part"), dir.file("2.part")};
    for (const bool keep : {false, true}) {
        NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, whole, 128, 64);
        options.keep_metadata = keep ? 1 : 0;
        options.web = 1;
        options.sound_codec = NQ360_SOUND_AAC;
        options.workers = 1;
        ASSERT_EQ(export_with(options).result, NQ360_FINISHED);
        options.parts = 2;
        for (options.part = 1; options.part <= 2; ++options.part) {
            options.output = parts[options.part - 1].c_str();
            ASSERT_EQ(export_with(options).result, NQ360_FINISHED);
        }
        const Outcome outcome = join(options_for({parts[1].c_str(), parts[0].c_str()}, joined));
        ASSERT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
        EXPECT_TRUE(read_file(joined) == read_file(whole)) << keep;
    }
}

namespace {

Bytes share_text(const std::string& characters) {
    return be32(characters.size()) + text(characters);
}

// A share with these numbers and nothing behind its header.
Bytes share_of(const std::string& number, const std::string& count) {
    return text("nq360 share 1\n") + be32(2) + share_text("share") + share_text(number) + share_text("shares") +
           share_text(count);
}

Bytes sparse(Bytes bytes) {
    return bytes + zeros(5000000);
}

}  // namespace

TEST_F(Join, RefusesNumbersThatCannotBe) {
    const Bytes magic = text("nq360 share 1\n");
    const std::string output = dir.file("out.mov");
    for (const Bytes& bytes :
         {share_of("1", "2147483647"), share_of("2", "4294967298"), share_of("0", "2"), share_of("3", "2"),
          share_of("1", "100001"), sparse(magic + be32(0xFFFFFFFF)), sparse(magic + be32(2) + be32(2000000))}) {
        const std::string part = dir.file("1.part", bytes);
        const nlohmann::json reply = join(options_for({part.c_str()}, output)).json();
        EXPECT_EQ(reply.at("errnum"), "30001");
        EXPECT_EQ(reply.at("api_errstr"), "it is damaged, or not whole");
    }
}

TEST_F(Join, NamesOnlySomeOfManyMissingParts) {
    const std::string part = dir.file("1.part", share_of("2", "2500"));
    const std::string why =
        "of its 2500 parts these are missing: 1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, "
        "17, 18, 19, 20, 21 and 2479 more";
    EXPECT_EQ(join(options_for({part.c_str()}, dir.file("out.mov"))).json().at("api_errstr"), why);
}

TEST_F(Join, DoesNotWaitForAPipe) {
    const std::string pipe = dir.file("1.part");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Watchdog watchdog("joining a pipe");
    const std::string joined = dir.file("out.mov");
    EXPECT_EQ(join(options_for({pipe.c_str()}, joined)).json().at("api_errstr"), "it is no part of a movie");
    const Shot shot = movies_in(dir, {"--size", "1440", "--frames", "3", "--sound", "none"});
    const std::string output = dir.file("2.part");
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, output, 128, 64);
    options.band = pipe.c_str();
    options.part = options.parts = 2;
    EXPECT_EQ(export_with(options).result, NQ360_FAILED);
}

// Machines that share a movie need not speak one language.
TEST_F(Join, OfMachinesThatWriteNumbersOtherwise) {
    const Shot shot = movies_in(dir, {"--size", "1440", "--frames", "3", "--sound", "none"});
    const std::string parts[] = {dir.file("1.part"), dir.file("2.part")};
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, parts[0], 128, 64);
    options.feather = 0.5;
    options.parts = 2;
    options.part = 1;
    ASSERT_EQ(export_with(options).result, NQ360_FINISHED);
    options.output = parts[1].c_str();
    options.part = 2;
    {
        const CommaLocale locale;
        ASSERT_EQ(export_with(options).result, NQ360_FINISHED);
    }
    const Outcome outcome = join(options_for({parts[0].c_str(), parts[1].c_str()}, dir.file("out.mov")));
    EXPECT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
}

TEST_F(Join, OfPicturesThereAreNoShares) {
    const Shot shot = stills_in(dir, {"--size", "1440"});
    NQ360_EXPORT_OPTIONS options = export_options(shot.one, shot.two, "", 128, 64);
    const std::string output = dir.file("1.part");
    options.output = output.c_str();
    options.part = options.parts = 1;
    const Outcome outcome = export_with(options);
    EXPECT_EQ(outcome.result, NQ360_FAILED);
    EXPECT_THAT(outcome.json().at("api_errstr").get<std::string>(), HasSubstr("two pictures make a JPEG picture"));
}
