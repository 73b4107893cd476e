#include "api/export.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>

extern "C" {
#include <libavutil/error.h>
}

#include "nq360.h"
#include "projection/correct_map.h"
#include "projection/soavfunc.h"
#include "support/child.h"
#include "support/export_fixture.h"
#include "support/failing_new.h"
#include "support/failing_open.h"
#include "support/fake_volume.h"
#include "support/picture.h"
#include "support/plain_media.h"
#include "support/replies.h"
#include "support/samples.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

class Export : public ExportFixture {
  protected:
    Export() : ExportFixture("out.jpg") {}

    // Both files exist; what is in them does not matter to the entry's checks.
    void use_any_files() { use({dir.file("1.jpg", text("x")), dir.file("2.jpg", text("xy"))}); }
    void use_stills() { use(stills_in(dir, {"--size", "1440"})); }

    // The reply of a failure, with the paths of the call.
    Reply failure(int errnum, const std::string& errstr, int api_errnum = -1, const std::string& api_errstr = "",
                  NQ360_STATE state = NQ360_FAILED) const {
        return {state,
                error3(errnum, errstr, shot.one, shot.two, call.output ? call.output : "", api_errnum, api_errstr)};
    }
};

}  // namespace

// ---- The entry's checks ----

TEST_F(Export, MissingFirstInput) {
    use_any_files();
    fs::remove(shot.one);
    fs::remove(shot.two);
    write_file(output, text("earlier"));
    const Outcome outcome = call.run();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.replies, ElementsAre(failure(30000, "Input file1 not exiists")));
    EXPECT_EQ(read_file(output), text("earlier"));
}

TEST_F(Export, MissingSecondInput) {
    use_any_files();
    fs::remove(shot.two);
    write_file(output, text("earlier"));
    const Outcome outcome = call.run();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_THAT(outcome.replies, ElementsAre(failure(30000, "Input file2 not exiists")));
    EXPECT_EQ(read_file(output), text("earlier"));
}

TEST_F(Export, NullInputsAreMissing) {
    use_any_files();
    call.movie1 = nullptr;
    EXPECT_EQ(call.run().text(), error3(30000, "Input file1 not exiists", "", shot.two, output));
    call.movie1 = shot.one.c_str();
    call.movie2 = nullptr;
    EXPECT_EQ(call.run().text(), error3(30000, "Input file2 not exiists", shot.one, "", output));
}

TEST_F(Export, UnwritableFolder) {
    use_any_files();
    use_output(dir.file("no folder") + "/out.jpg");
    EXPECT_THAT(call.run().replies, ElementsAre(failure(30003, "export file not writable")));
}

TEST_F(Export, ReadOnlyFolder) {
    use_any_files();
    fs::permissions(dir.path(), fs::perms(0555));
    EXPECT_TRUE(true_unprivileged([&] { return call.run().end() == failure(30003, "export file not writable"); }));
}

TEST_F(Export, OutputOnAFileOfTheCallIsRefusedAndNothingTouched) {
    use_any_files();
    const std::string band = dir.file("band.png", text("band"));
    const std::string cancel = dir.file("cancel", text("cancel"));
    call.band = band.c_str();
    call.cancel = cancel.c_str();
    for (const std::string& own : {shot.one, shot.two, band, cancel}) {
        const Bytes before = read_file(own);
        const std::string hard = own + ".hard.jpg";
        const std::string symbolic = own + ".symbolic.jpg";
        fs::create_hard_link(own, hard);
        fs::create_symlink(own, symbolic);
        for (const std::string& path : {own, hard, symbolic}) {
            use_output(path);
            const Outcome outcome = call.run();
            EXPECT_EQ(outcome.result, 0);
            EXPECT_THAT(outcome.replies, ElementsAre(failure(30003, "export file not writable"))) << path;
            EXPECT_EQ(read_file(path), before);
        }
    }
}

// A marker is not there yet when the export starts; its path would be the output's, and cancel the export.
TEST_F(Export, OutputOnTheMarkersPathIsRefused) {
    use_any_files();
    const std::string marker = dir.path() + "/./out.jpg";
    call.cancel = marker.c_str();
    EXPECT_THAT(call.run().replies, ElementsAre(failure(30003, "export file not writable")));
    EXPECT_FALSE(fs::exists(output));
}

TEST_F(Export, RoomForBothInputsAndFiftyMebibytesIsNeeded) {
    use_any_files();  // 1 and 2 bytes
    {
        FakeVolume volume(52428800 + 3);
        write_file(output, text("earlier"));
        const Outcome outcome = call.run();
        EXPECT_EQ(outcome.result, 0);
        EXPECT_THAT(outcome.replies, ElementsAre(failure(30004, "disk is full")));
        EXPECT_EQ(read_file(output), text("earlier"));
    }
    FakeVolume volume(52428801 + 3);
    EXPECT_EQ(call.run().json().at("errnum"), "30001");
    EXPECT_EQ(volume.asked(), dir.path());
}

TEST_F(Export, ChecksComeInTheirOrder) {
    use_any_files();
    FakeVolume volume(0);
    const std::string writable = output;
    use_output(dir.file("no folder") + "/out.jpg");
    fs::rename(shot.two, dir.file("elsewhere"));
    EXPECT_EQ(call.run().json().at("errstr"), "Input file2 not exiists");
    fs::rename(dir.file("elsewhere"), shot.two);
    EXPECT_EQ(call.run().json().at("errnum"), "30003");
    use_output(writable);
    EXPECT_EQ(call.run().json().at("errnum"), "30004");
}

TEST_F(Export, NullOutputSkipsItsChecksAndFailsInTheWriter) {
    use_stills();
    FakeVolume volume(0);
    call.output = nullptr;
    const Outcome outcome = call.run();
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(volume.asked(), "");
    ASSERT_EQ(outcome.replies.size(), 2u);
    EXPECT_EQ(outcome.replies[0].state, NQ360_STARTED);
    EXPECT_EQ(outcome.replies[1], failure(39999, "Could not write video", AVERROR(EINVAL), "Invalid argument"));
}

TEST_F(Export, NeedsNoCallback) {
    use_stills();
    EXPECT_EQ(call.run_with(nullptr), 0);
    EXPECT_EQ(size_of(output), cv::Size(720, 360));
    call.width = 0;
    EXPECT_EQ(call.run_with(nullptr), 0);
    EXPECT_FALSE(fs::exists(output));
    fs::remove(shot.two);
    EXPECT_EQ(call.run_with(nullptr), 0);
}

// ---- Failures of the workflow ----

TEST_F(Export, InputThatCannotBeAnalysed) {
    use_stills();
    const std::string bad = dir.file("bad.mov", text("no movie"));
    const std::string other = dir.file("other.txt", text("no picture"));
    const std::string good = shot.one;
    for (const std::string& input : {bad, other}) {
        write_file(output, text("earlier"));
        use({input, good});
        EXPECT_THAT(call.run().replies, ElementsAre(failure(30001, "Analyze Error InputFile1", -1,
                                                            "[_NQ360_export_analyze]:analyze error")));
        EXPECT_FALSE(fs::exists(output));
        use({good, input});
        EXPECT_THAT(call.run().replies, ElementsAre(failure(30001, "Analyze Error InputFile2", -1,
                                                            "[_NQ360_export_analyze]:analyze error")));
    }
}

TEST_F(Export, DifferentSizes) {
    use({make_plain_picture(dir.file("1.jpg"), "1440x1400"), make_plain_picture(dir.file("2.jpg"), "1936x1440")});
    const std::string sizes = "size error width1:1440 width2:1936 height11400 height2:1440";
    Outcome outcome;
    const std::string log = logged([&] { outcome = call.run(); });
    EXPECT_THAT(outcome.replies, ElementsAre(failure(30001, "Movie/Image different width or height", -1,
                                                     "[_NQ360_export_analyze]:" + sizes)));
    EXPECT_THAT(log, HasSubstr("[_NQ360_export_analyze] " + sizes + "\n"));

    use({make_plain_picture(dir.file("1.jpg"), "1440x1440"), make_plain_picture(dir.file("2.jpg"), "1440x1400")});
    EXPECT_EQ(call.run().json().at("errstr"), "Movie/Image different width or height");
}

TEST_F(Export, DifferentSizesAreToldBeforeAWidthThatTheCameraDoesNotRecord) {
    const std::string other = make_plain_picture(dir.file("1.jpg"), "1920x1920");
    const std::string recorded = make_plain_picture(dir.file("2.jpg"), "1440x1440");
    for (const Shot& inputs : {Shot{other, recorded}, Shot{recorded, other}}) {
        use(inputs);
        EXPECT_EQ(call.run().json().at("errstr"), "Movie/Image different width or height");
    }
}

TEST_F(Export, WidthThatTheCameraDoesNotRecord) {
    use({make_plain_picture(dir.file("1.jpg"), "1920x1920"), make_plain_picture(dir.file("2.jpg"), "1920x1920")});
    Outcome outcome;
    const std::string log = logged([&] { outcome = call.run(); });
    EXPECT_THAT(outcome.replies, ElementsAre(failure(30001, "Movie/Image width not in 3888 , 1936 , 1440", -1,
                                                     "[_NQ360_export_analyze]:size error width:1920")));
    // Both were analysed before.
    EXPECT_THAT(log, HasSubstr("[NQ360_analyze_jpeg] end:" + shot.one + ":\n"));
    EXPECT_THAT(log, HasSubstr("[NQ360_analyze_jpeg] end:" + shot.two + ":\n"));
    EXPECT_THAT(log, HasSubstr("[_NQ360_export_analyze] frame_count1:0 frame_count2:0\n"));
}

TEST_F(Export, InputThatCannotBeOpenedAgain) {
    use_stills();
    for (const int opening : {2, 3}) {  // after one for each analysis
        const FailingOpen fault(opening);
        const Outcome outcome = call.run();
        EXPECT_EQ(outcome.result, 0);
        EXPECT_THAT(outcome.replies,
                    ElementsAre(failure(30001, "Could not open file", AVERROR(EIO), "Input/output error")));
        EXPECT_FALSE(fs::exists(output));
    }
}

TEST_F(Export, SizeThatIsNotPositive) {
    use_stills();
    for (const auto& [width, height] : {std::pair(0, 360), {720, 0}, {-720, 360}, {720, -1}, {INT_MIN, INT_MIN}}) {
        call.width = width;
        call.height = height;
        write_file(output, text("earlier"));
        const Outcome outcome = call.run();
        EXPECT_EQ(outcome.result, -1);
        EXPECT_THAT(outcome.replies, ElementsAre(failure(39999, "an unknown error occurred", -1,
                                                         "the panorama's sides must be 2 to 32766 pixels, not " +
                                                             std::to_string(width) + " x " + std::to_string(height))));
        EXPECT_FALSE(fs::exists(output));
    }
}

TEST_F(Export, PictureTooSmallForItsRadius) {
    use({make_plain_picture(dir.file("1.jpg"), "1936x800"), make_plain_picture(dir.file("2.jpg"), "1936x800")});
    const Outcome outcome = call.run();
    EXPECT_EQ(outcome.result, -1);
    EXPECT_THAT(outcome.replies,
                ElementsAre(failure(39999, "an unknown error occurred", -1,
                                    "the lens pictures are too small for the lens circle: 1936 x 800")));
    // The circle's diameter is 1814; it must be smaller than the picture.
    use({make_plain_picture(dir.file("1.jpg"), "1936x1814"), make_plain_picture(dir.file("2.jpg"), "1936x1814")});
    EXPECT_EQ(call.run().state(), NQ360_FAILED);
    use({make_plain_picture(dir.file("1.jpg"), "1936x1816"), make_plain_picture(dir.file("2.jpg"), "1936x1816")});
    EXPECT_EQ(call.run().state(), NQ360_FINISHED);
}

TEST_F(Export, UnexpectedFailureRemovesTheOutput) {
    use_stills();
    const Outcome outcome = call.run([](const Reply& reply) {
        if (reply.state == NQ360_STARTED) {
            throw std::runtime_error("a reason\n");
        }
    });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.end(), failure(39999, "an unknown error occurred", -1, "a reason "));
    EXPECT_FALSE(fs::exists(output));
}

// Each run ends with one reply, and without a file when it failed. On one thread: OpenCV's own pool waits for ever
// when memory runs out while it hands out work.
TEST_F(Export, AllocationThatFailsIsReplied) {
    const int threads = cv::getNumThreads();
    cv::setNumThreads(1);
    use_stills();
    call.width = 64;
    call.height = 32;
    const std::string reply = failure(39999, "an unknown error occurred", -1, "std::bad_alloc").text;
    int failures = 0;
    bool failed = true;
    for (long number = 0; failed; ++number) {
        fs::remove(output);
        last_reply = {};
        int result = 0;
        {
            const FailingNew fault(number);
            result = call.run_with(keep_last);
            failed = fault.failed();
        }
        ASSERT_EQ(last_reply.ends, 1) << number;
        EXPECT_EQ(fs::exists(output), last_reply.state == NQ360_FINISHED) << number << " " << last_reply.text;
        if (result == -1) {
            ++failures;
            EXPECT_EQ(last_reply.text, reply);
        }
    }
    cv::setNumThreads(threads);
    EXPECT_GT(failures, 0);
}

// ---- Success ----

TEST_F(Export, TwoPicturesMakeAJpeg) {
    use_stills();
    const Outcome outcome = call.run();
    EXPECT_EQ(outcome.result, 0);
    const std::string paths =
        R"({"movie_path1":")" + shot.one + R"(","movie_path2":")" + shot.two + R"(","export_path":")" + output + "\"";
    EXPECT_THAT(outcome.replies,
                ElementsAre(Reply{NQ360_STARTED, paths + R"(,"frame_count":0})"}, Reply{NQ360_FINISHED, paths + "}"}));
    EXPECT_EQ(slice(read_file(output), 0, 4), (Bytes{0xFF, 0xD8, 0xFF, 0xE1}));
    EXPECT_EQ(size_of(output), cv::Size(720, 360));
}

TEST_F(Export, EarlierOutputIsReplaced) {
    use_stills();
    call.run();
    const Bytes fresh = read_file(output);
    write_file(output, zeros(10000000));
    EXPECT_EQ(call.run().state(), NQ360_FINISHED);
    EXPECT_EQ(read_file(output), fresh);
}

TEST_F(Export, NamesAreEscapedInItsReplies) {
    use_stills();
    const std::string odd = dir.file("lens \"1\" \\ 100%d.jpg");
    fs::rename(shot.one, odd);
    use({odd, shot.two});
    use_output(dir.file("out \"x\" \\ %s.jpg"));
    for (const Reply& reply : call.run().replies) {
        EXPECT_EQ(reply.json().at("movie_path1"), odd);
        EXPECT_EQ(reply.json().at("export_path"), output);
    }
    EXPECT_TRUE(fs::exists(output));
}

// ---- The workflow by itself ----

TEST_F(Export, WorkflowLeavesAReplyAndClearsTheCancelFlag) {
    use_stills();
    OutputOption option;
    option.output_size = {64, 32};
    option.correct1 = option.correct2 = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, CORRECT_NONE);
    const char* json = "not set";
    int cancelled = 7;
    EXPECT_EQ(
        _NQ360_export(call.movie1, call.movie2, call.output, nullptr, nullptr, option, &json, &cancelled, nullptr), 0);
    EXPECT_EQ(cancelled, 0);
    EXPECT_EQ(nlohmann::json::parse(json).at("export_path"), output);
    std::free(const_cast<char*>(json));
    EXPECT_EQ(option.radius, 0);  // the workflow completes a copy of its own

    cancelled = 7;
    EXPECT_EQ(_NQ360_export(call.movie1, call.band, call.output, nullptr, nullptr, option, &json, &cancelled, nullptr),
              -1);
    EXPECT_EQ(cancelled, 0);
    EXPECT_EQ(nlohmann::json::parse(json).at("errstr"), "Analyze Error InputFile2");
    std::free(const_cast<char*>(json));
}

// Tables of another panorama, that a caller has left in the option, are none of its own.
TEST_F(Export, WorkflowTakesNoTablesOfItsCallers) {
    use_stills();
    OutputOption option;
    option.output_size = {64, 32};
    option.correct1 = option.correct2 = create_linnercorrectmap(CORRECT_NONE, CORRECT_NONE, CORRECT_NONE);
    Bytes without;
    for (const ImageSize other : {ImageSize{0, 0}, ImageSize{64, 32}, ImageSize{32, 16}, ImageSize{128, 64}}) {
        if (other.width > 0) {
            option.transmap = create_equidistantmap(other, {1000, 900}, 400, 0, {1, 2, 0, 0, 0.5});
        }
        const char* json = nullptr;
        int cancelled = 0;
        EXPECT_EQ(
            _NQ360_export(call.movie1, call.movie2, call.output, nullptr, nullptr, option, &json, &cancelled, nullptr),
            0)
            << json;
        std::free(const_cast<char*>(json));
        without = other.width > 0 ? without : read_file(output);
        EXPECT_TRUE(read_file(output) == without) << other.width;
    }
}

// ---- Movies ----

namespace {

class ExportMovies : public Export {
  protected:
    // Two movies of the camera's size; they differ in length.
    void SetUp() override {
        use({make_plain_movie(dir.file("1.mov"), "", "1440x1440"),
             make_plain_movie(dir.file("2.mov"), "", "1440x1440")});
        use_output(dir.file("out.mov"));
    }
    std::string cut(const std::string& movie, int frames) {
        const std::string shorter = dir.file(std::to_string(frames) + ".mov");
        output_of({"ffmpeg", "-v", "error", "-i", movie, "-c", "copy", "-frames:v", std::to_string(frames), shorter});
        return shorter;
    }
    std::string still() {
        const std::string picture = dir.file("still.jpg");
        output_of({"ffmpeg", "-v", "error", "-i", shot.one, "-c", "copy", "-frames:v", "1", picture});
        return picture;
    }
    int frames() {
        return std::stoi(output_of({"ffprobe", "-v", "error", "-count_packets", "-select_streams", "v:0",
                                    "-show_entries", "stream=nb_read_packets", "-of", "csv=p=0", output}));
    }
};

int64_t announced(const Outcome& outcome) {
    return outcome.replies.at(0).state == NQ360_STARTED ? outcome.replies[0].json().at("frame_count").get<int64_t>()
                                                        : -1;
}

}  // namespace

TEST_F(ExportMovies, ShorterMovieSetsTheLength) {
    use({shot.one, cut(shot.two, 12)});
    const Outcome outcome = call.run();
    EXPECT_EQ(outcome.state(), NQ360_FINISHED);
    EXPECT_EQ(announced(outcome), 12);
    EXPECT_EQ(frames(), 12);
    ASSERT_EQ(outcome.replies.size(), 3u);
    EXPECT_EQ(outcome.replies[1],
              (Reply{NQ360_PROGRESS, R"({"movie_path1":")" + shot.one + R"(","movie_path2":")" + shot.two +
                                         R"(","export_path":")" + output + R"(","frame_count":10})"}));
}

TEST_F(ExportMovies, PictureWithAMovieMakesAMovie) {
    const std::string movie = shot.one;
    for (const bool movie_first : {true, false}) {
        use(movie_first ? Shot{movie, still()} : Shot{still(), movie});
        use_output(dir.file(movie_first ? "first.mov" : "second.mov"));
        const Outcome outcome = call.run();
        EXPECT_EQ(outcome.state(), NQ360_FINISHED);
        EXPECT_EQ(announced(outcome), 15);  // a picture counts no frames
        EXPECT_EQ(frames(), 15);
        EXPECT_THAT(to_string(read_file(output)), HasSubstr("<GSpherical:Spherical>true"));
        fs::remove(dir.file("still.jpg"));
    }
}

TEST_F(ExportMovies, MarkerCancelsAndThePartialOutputGoes) {
    const std::string marker = dir.file("marker");
    call.cancel = marker.c_str();
    bool partial = false;
    const Outcome outcome = call.run([&](const Reply& reply) {
        if (reply.state == NQ360_PROGRESS) {
            partial = fs::exists(output);
            write_file(marker, {});
        }
    });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(partial);
    EXPECT_EQ(outcome.end(), failure(39999, "Canceled", -1, "", NQ360_CANCELLED));
    EXPECT_FALSE(fs::exists(output));
    EXPECT_TRUE(fs::exists(marker));
}

TEST_F(ExportMovies, MarkerIsLookedForAtProgressOnly) {
    use({cut(shot.one, 9), shot.two});
    const std::string marker = dir.file("marker", Bytes{});
    call.cancel = marker.c_str();
    EXPECT_EQ(call.run().state(), NQ360_FINISHED);
}

TEST_F(ExportMovies, UnexpectedFailureWhileWritingRemovesTheOutput) {
    const Outcome outcome = call.run([](const Reply& reply) {
        if (reply.state == NQ360_PROGRESS) {
            throw std::runtime_error("a reason");
        }
    });
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.end(), failure(39999, "an unknown error occurred", -1, "a reason"));
    EXPECT_FALSE(fs::exists(output));
}
