// With files that are in order, nothing but the library's own lines goes to the standard error stream.
#include <string>

#include <gtest/gtest.h>

#include "support/log_lines.h"
#include "support/movie_export.h"
#include "support/plain_media.h"

using namespace test_support;

namespace {

class StandardError : public MovieExport {
  protected:
    void expect_quiet_export(const Shot& inputs, const std::string& name) {
        SCOPED_TRACE(name);
        use(inputs);
        use_output(name);
        call.width = 128;
        call.height = 64;
        Outcome outcome;
        const std::string log = logged([&] { outcome = run(); });
        EXPECT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
        expect_own_lines_only(log);
        EXPECT_NE(log, "");
    }
};

class QuietMovie : public StandardError, public testing::WithParamInterface<const char*> {
  protected:
    Shot movies(const std::string& extension = ".mov") {
        return lens_movies({"--frames", "4", "--codec", GetParam(), "--sound", "1"}, extension);
    }
};

}  // namespace

TEST_P(QuietMovie, IsExported) {
    call.audio_source = 0;
    for (const char* name : {"out.mov", "out.mp4"}) {
        expect_quiet_export(movies(), name);
    }
    expect_quiet_export(movies(".mp4"), "out.mov");
    expect_quiet_export({movies().one, lens_still(2)}, "out.mov");
    call.start1 = call.start2 = time_of(1);
    expect_quiet_export(movies(), "out.mov");
    call.audio_source = -1;
    expect_quiet_export(movies(), "out.mov");
}

TEST_P(QuietMovie, IsAnalysed) {
    for (const char* extension : {".mov", ".mp4"}) {
        Outcome outcome;
        expect_own_lines_only(logged([&] { outcome = analyze(movies(extension).one, dir.file("t.jpg"), 64); }));
        EXPECT_EQ(outcome.json().at("createdThumbnail"), true);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, QuietMovie, testing::Values("h264-baseline", "h264-main", "h264-high", "mjpeg"),
                         [](const auto& codec) {
                             std::string name = codec.param;
                             return name.substr(name.find('-') + 1);
                         });

TEST_F(StandardError, IsQuietAboutStills) {
    for (const char* chroma : {"420", "422"}) {
        expect_quiet_export(stills_in(dir, {"--size", "1440", "--chroma", chroma}), "out.jpg");
        Outcome outcome;
        expect_own_lines_only(logged([&] { outcome = analyze(shot.one, dir.file("t.jpg"), 64); }));
        EXPECT_EQ(outcome.json().at("createdThumbnail"), true);
    }
}

TEST_F(StandardError, IsQuietAboutABand) {
    const std::string band = make_plain_picture(dir.file("band.png"), "400x20");
    call.band = band.c_str();
    expect_quiet_export(stills_in(dir, {"--size", "1440"}), "out.jpg");
    expect_quiet_export(lens_movies({"--frames", "2"}), "out.mov");
}

TEST_F(StandardError, IsQuietAboutSound) {
    for (const char* codec : {"pcm_s16le", "aac", "mp3", "alac"}) {
        const std::string movie = make_plain_movie(dir.file("a.mov"), codec);
        for (const char* name : {"out.wav", "out.mov", "out.caf"}) {
            SCOPED_TRACE(testing::Message() << codec << " to " << name);
            Outcome outcome;
            expect_own_lines_only(logged([&] { outcome = get_audio(movie.c_str(), dir.file(name).c_str()); }));
            EXPECT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
        }
    }
}
