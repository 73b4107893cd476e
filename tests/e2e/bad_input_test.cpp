// What a user may hand in, whole or broken: each call ends with one reply, leaves no file behind when it fails, and
// every input as it was.
#include <cerrno>
#include <climits>
#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include "nq360.h"
#include "support/bytes.h"
#include "support/child.h"
#include "support/export_fixture.h"
#include "support/fake_volume.h"
#include "support/limits.h"
#include "support/picture.h"
#include "support/plain_media.h"
#include "support/replies.h"
#include "support/samples.h"
#include "support/temp_dir.h"

using namespace test_support;
namespace fs = std::filesystem;
using testing::AnyOf;
using testing::Eq;
using testing::HasSubstr;

namespace {

class BadInput : public ExportFixture {
  protected:
    BadInput() : ExportFixture("out.jpg") { use(stills_in(dir, {"--size", "1440"})); }

    // Exports, and sees that a failure leaves nothing and that both inputs stay.
    Outcome export_carefully() {
        const Bytes before[] = {read_file(shot.one), read_file(shot.two)};
        const Outcome outcome = call.run();
        EXPECT_EQ(read_file(shot.one), before[0]);
        EXPECT_EQ(read_file(shot.two), before[1]);
        EXPECT_THAT(outcome.state(), AnyOf(NQ360_FINISHED, NQ360_FAILED));
        EXPECT_THAT(outcome.result, AnyOf(0, -1));
        EXPECT_EQ(fs::exists(output), outcome.state() == NQ360_FINISHED) << outcome.text();
        return outcome;
    }

    // The same with this file in the place of either lens.
    void export_with(const std::string& bad, const std::string& errnum, const std::string& api_errstr) {
        const Shot good = shot;
        for (const Shot& inputs : {Shot{bad, good.two}, Shot{good.one, bad}}) {
            use(inputs);
            const auto json = export_carefully().json();
            EXPECT_EQ(json.at("errnum"), errnum) << bad;
            EXPECT_THAT(json.at("api_errstr").get<std::string>(), HasSubstr(api_errstr)) << bad;
        }
        use(good);
    }

    // Analyses, and sees that a failure leaves no thumbnail and that the input stays.
    Outcome analyze_carefully(const std::string& input) {
        const Bytes before = read_file(input);
        write_file(thumbnail, text("earlier"));
        const Outcome outcome = analyze(input, thumbnail, 64);
        EXPECT_EQ(read_file(input), before);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(fs::exists(thumbnail), outcome.state() == NQ360_FINISHED) << outcome.text();
        if (outcome.state() == NQ360_FINISHED) {
            EXPECT_EQ(size_of(thumbnail).width, 64);
        }
        outcome.json();
        return outcome;
    }

    // ffprobe takes some names for patterns.
    cv::Size size_of_named(const std::string& path) {
        const TempDir elsewhere;
        fs::copy_file(path, elsewhere.file("copy.jpg"));
        return size_of(elsewhere.file("copy.jpg"));
    }

    std::string broken(const std::string& name, const Bytes& content) { return dir.file(name, content); }

    std::string thumbnail = dir.file("thumbnail.jpg");
};

// Names that mean something to a shell, to printf, to JSON or to FFmpeg.
const char* const kOddNames[] = {"100%",       "%d%s%n",    "p%03d",       "a:b",         "http:x",
                                 "concat:a|b", "pipe:1",    "file:a",      "two blanks",  " ",
                                 "\"quo\"",    "'single'",  "back\\slash", "a*b?c[d]{e}", "-y",
                                 "a,b;c&d",    "#1",        "tab\t",       "line\nbreak", "\xC3\xA4\xE2\x82\xAC",
                                 "\xFF\xFE",   "trailing.", ".hidden",     "\x01\x7F"};

}  // namespace

// ---- Arguments ----

TEST_F(BadInput, EveryPointerMayBeNull) {
    call.movie1 = nullptr;
    EXPECT_EQ(call.run().json().at("errnum"), "30000");
    call.movie1 = shot.one.c_str();
    call.movie2 = nullptr;
    EXPECT_EQ(call.run().json().at("errnum"), "30000");
    call.movie2 = shot.two.c_str();
    call.output = nullptr;
    EXPECT_EQ(call.run().json().at("errnum"), "39999");
    call.output = output.c_str();
    call.band = nullptr;
    call.datetime = nullptr;
    call.cancel = nullptr;
    EXPECT_EQ(call.run().state(), NQ360_FINISHED);
    EXPECT_EQ(call.run_with(nullptr), 0);
    call = ExportCall();
    call.datetime = nullptr;
    EXPECT_EQ(call.run_with(nullptr), 0);
    EXPECT_EQ(call.run().json().at("errnum"), "30000");
    EXPECT_EQ(analyze(nullptr, nullptr).json().at("errnum"), "10000");
    EXPECT_EQ(NQ360_analyze_image(nullptr, nullptr, 0, 0, nullptr), 0);
    EXPECT_EQ(get_audio(nullptr, nullptr).json().at("errnum"), "20000");
    EXPECT_EQ(NQ360_get_audio(nullptr, nullptr, 0, nullptr, nullptr), 0);
    EXPECT_GT(NQ360_freesize(nullptr), 0u);  // the current directory's volume
}

TEST_F(BadInput, EmptyPaths) {
    EXPECT_EQ(analyze("", "").json().at("errnum"), "10000");
    EXPECT_EQ(analyze(shot.one, "").state(), NQ360_FAILED);
    call.output = "";
    EXPECT_EQ(call.run().state(), NQ360_FAILED);
    call.output = output.c_str();
    call.cancel = "";
    EXPECT_EQ(call.run().state(), NQ360_FINISHED);
    call.band = "";
    EXPECT_EQ(call.run().state(), NQ360_FAILED);
    call.movie1 = "";
    EXPECT_EQ(call.run().json().at("errnum"), "30000");
    EXPECT_GT(NQ360_freesize(""), 0u);
}

TEST_F(BadInput, AnglesThatAreNoNumbers) {
    const float infinity = std::numeric_limits<float>::infinity();
    for (const float angle : {std::nanf(""), infinity, -infinity, 3e38f, -1e-45f}) {
        call.angle1 = angle;
        call.angle2 = -angle;
        EXPECT_EQ(export_carefully().state(), NQ360_FINISHED) << angle;
        EXPECT_EQ(size_of(output), cv::Size(720, 360));
    }
}

TEST_F(BadInput, ExtremeThirdAngles) {
    for (const int angle : {INT_MIN, INT_MAX}) {
        call.angle = angle;
        EXPECT_EQ(export_carefully().state(), NQ360_FINISHED);
    }
}

TEST_F(BadInput, StillsTakeNoPartInTheRange) {
    call.run();
    const Bytes expected = read_file(output);
    const float infinity = std::numeric_limits<float>::infinity();
    for (const float time : {std::nanf(""), infinity, -infinity, 3e38f, -1.0f, 5.0f}) {
        call.start1 = call.start2 = time;
        call.end1 = call.end2 = -time;
        const Outcome outcome = export_carefully();
        EXPECT_EQ(outcome.state(), NQ360_FINISHED) << time;
        EXPECT_TRUE(outcome.replies.at(0).json().at("frame_count").is_number());
        EXPECT_EQ(read_file(output), expected);
    }
}

TEST_F(BadInput, AnySoundSourceOfStills) {
    for (const int source : {-1, 0, 1, 2, INT_MIN, INT_MAX}) {
        call.audio_source = source;
        EXPECT_EQ(export_carefully().state(), NQ360_FINISHED) << source;
    }
}

// ---- Pictures that cannot be stitched ----

TEST_F(BadInput, PicturesOfOtherFormatsAreToldByTheirNumber) {
    const Shot full = stills_in(dir, {"--size", "1440", "--chroma", "444"});
    fs::rename(full.one, dir.file("444.jpg"));
    const Shot gray = stills_in(dir, {"--size", "1440", "--chroma", "gray"});
    fs::rename(gray.one, dir.file("gray.jpg"));
    const Shot good = stills_in(dir, {"--size", "1440"});
    for (const std::string& bad : {dir.file("444.jpg"), dir.file("gray.jpg")}) {
        use({bad, good.two});
        EXPECT_EQ(export_carefully().json().at("api_errstr"),
                  "input 1 is not 4:2:0 or 4:2:2 with 8 bits, the only formats that can be stitched");
        use({good.one, bad});
        const auto json = export_carefully().json();
        EXPECT_EQ(json.at("api_errstr"),
                  "input 2 is not 4:2:0 or 4:2:2 with 8 bits, the only formats that can be stitched");
        EXPECT_EQ(json.at("errnum"), "39999");
        EXPECT_EQ(json.at("errstr"), "an unknown error occurred");
        EXPECT_EQ(analyze_carefully(bad).state(), NQ360_FINISHED);
    }
}

TEST_F(BadInput, PngNamedJpg) {
    make_plain_picture(dir.file("a.png"), "1440x1440");
    fs::rename(dir.file("a.png"), dir.file("png.jpg"));
    EXPECT_EQ(analyze_carefully(dir.file("png.jpg")).state(), NQ360_FINISHED);
    export_with(dir.file("png.jpg"), "39999", "is not 4:2:0 or 4:2:2");
}

TEST_F(BadInput, SizesThatDiffer) {
    const std::string other = make_plain_picture(dir.file("other.jpg"), "1440x1438");
    export_with(other, "30001", "size error width1:1440 width2:1440");
}

// ---- Broken files ----

TEST_F(BadInput, FilesWithoutAPicture) {
    for (const std::string extension : {".jpg", ".mov"}) {
        for (const Bytes& content :
             {Bytes{}, zeros(1), zeros(5000), text("This is a text, not a picture.\n"), Bytes{0xFF}, jpeg_start(),
              jpeg_start() + Bytes{0xFF, 0xD9}, jpeg_start() + jpeg_end(), Bytes(3000, 0xFF)}) {
            const std::string bad = broken("bad" + extension, content);
            const auto json = analyze_carefully(bad).json();
            EXPECT_EQ(json.count("errnum"), 1u) << extension << " of " << content.size() << " bytes";
            export_with(bad, "30001", "");
        }
    }
}

TEST_F(BadInput, EmptyFileHasItsReply) {
    const std::string bad = broken("empty.jpg", {});
    const auto json = analyze_carefully(bad).json();
    EXPECT_EQ(json.at("errnum"), "10001");
    EXPECT_EQ(json.at("errstr"), "Could Not open file");
}

TEST_F(BadInput, TruncatedPictures) {
    const Bytes whole = read_file(shot.one);
    for (size_t size = 1; size < whole.size(); size = size * 2 + 1) {
        const std::string bad = broken("truncated.jpg", slice(whole, 0, size));
        analyze_carefully(bad);
        const Shot good = shot;
        use({bad, good.two});
        export_carefully();
        use(good);
    }
    // Most of the picture is there, and is used.
    const std::string most = broken("truncated.jpg", slice(whole, 0, whole.size() - 1000));
    EXPECT_EQ(analyze_carefully(most).state(), NQ360_FINISHED);
}

TEST_F(BadInput, DamagedPictures) {
    const Bytes whole = read_file(shot.one);
    unsigned random = 1;
    for (int round = 0; round < 12; ++round) {
        Bytes damaged = whole;
        for (int i = 0; i < 200; ++i) {
            random = random * 1103515245 + 12345;
            const size_t range = round < 6 ? 700 : damaged.size();  // the headers, or anywhere
            damaged[(random >> 8) % range] = static_cast<uint8_t>(random >> 3);
        }
        const std::string bad = broken("damaged.jpg", damaged);
        analyze_carefully(bad);
        const Shot good = shot;
        use({good.one, bad});
        export_carefully();
        use(good);
    }
}

// Directories that lead back to themselves, in a circle, past the end, or that branch without end.
TEST_F(BadInput, DirectoriesThatNeverEnd) {
    const auto with_block = [&](const std::string& name, const Bytes& block) {
        Bytes picture = read_file(make_plain_picture(dir.file(name), "320x180"));
        const Bytes segment = exif_segment(block);
        picture.insert(picture.begin() + 2, segment.begin(), segment.end());
        write_file(dir.file(name), picture);
        return dir.file(name);
    };
    const auto pointer = [](uint32_t to) { return entry_long(0x8769, to); };

    MetadataBlock self = MetadataBlock::tiff();
    self.put_directory({pointer(8)});
    self.set_start(8);
    EXPECT_EQ(analyze_carefully(with_block("self.jpg", self.bytes())).state(), NQ360_FINISHED);

    MetadataBlock circle = MetadataBlock::tiff();
    const uint32_t first = circle.put_directory({pointer(26)});
    circle.put_directory({pointer(first)});
    circle.set_start(first);
    EXPECT_EQ(analyze_carefully(with_block("circle.jpg", circle.bytes())).state(), NQ360_FINISHED);

    MetadataBlock past = MetadataBlock::tiff();
    past.set_start(
        past.put_directory({pointer(0xFFFFFFFF), pointer(60000), entry(0x010F, kTypeAscii, 4000000000U, be32(8)),
                            entry(0x0110, kTypeAscii, 10, be32(0xFFFFFFF0))}));
    EXPECT_EQ(analyze_carefully(with_block("past.jpg", past.bytes())).state(), NQ360_FINISHED);

    MetadataBlock many = MetadataBlock::tiff();
    uint32_t below = many.put_directory({entry_short(0x0112, 3)});
    for (int level = 0; level < 5; ++level) {
        below = many.put_directory(std::vector<Bytes>(1000, pointer(below)));
    }
    many.set_start(below);
    EXPECT_EQ(analyze_carefully(with_block("many.jpg", many.bytes())).state(), NQ360_FINISHED);
}

TEST_F(BadInput, MakerBlockAtTheEndOfAMovie) {
    const std::string movie = make_plain_movie(dir.file("a.mov"), "");
    const Bytes whole = read_file(movie);
    const Bytes block = camera_block(MetadataBlock::maker());
    for (size_t size = 0; size < block.size(); size += 37) {
        write_file(movie, whole);
        append_to_moov(movie, atom("udta", {atom("MKRI", slice(block, 0, size))}));
        analyze_carefully(movie);
    }
}

TEST_F(BadInput, TruncatedMovies) {
    const std::string movie = make_plain_movie(dir.file("a.mov"), "pcm_s16le");
    add_maker_block(movie);
    const Bytes whole = read_file(movie);
    for (size_t size = whole.size() - 1; size > 0; size = size > 4000 ? size - size / 7 : size * 2 / 3) {
        analyze_carefully(broken("truncated.mov", slice(whole, 0, size)));
    }
    unsigned random = 7;
    for (int round = 0; round < 20; ++round) {
        Bytes damaged = whole;
        for (int i = 0; i < 20; ++i) {
            random = random * 1103515245 + 12345;
            const size_t moov = damaged.size() - 1500;
            damaged[moov + (random >> 8) % 1500] = static_cast<uint8_t>(random >> 3);
        }
        analyze_carefully(broken("damaged.mov", damaged));
    }
}

// The pictures of such a movie have another size from the third on than its header says.
TEST_F(BadInput, PicturesThatChangeTheirSizeInMidMovie) {
    const std::string large = make_plain_movie(dir.file("large.mov"), "", "1440x1440");
    const std::string small = make_plain_movie(dir.file("small.mov"), "", "1440x1424");
    const std::string list = dir.file("list", text("file '" + large + "'\nfile '" + small + "'\n"));
    const std::string both = dir.file("both.mov");
    output_of({"ffmpeg", "-v", "error", "-f", "concat", "-safe", "0", "-i", list, "-c", "copy", both});
    use({both, shot.two});
    use_output(dir.file("out.mov"));
    const auto json = export_carefully().json();
    EXPECT_EQ(json.at("errnum"), "39999");
    EXPECT_THAT(json.at("api_errstr").get<std::string>(), AllOf(HasSubstr("1440x1424"), HasSubstr("1440x1440")));
}

// ---- What is no file ----

TEST_F(BadInput, PipesDevicesAndFoldersAreNoInputs) {
    const std::string pipe = dir.file("pipe.jpg");
    const std::string folder = dir.file("folder.jpg");
    const std::string device = dir.file("device.jpg");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    fs::create_directory(folder);
    fs::create_symlink("/dev/zero", device);
    for (const std::string& bad : {pipe, folder, device, std::string("/dev/null")}) {
        call.movie1 = bad.c_str();
        EXPECT_EQ(call.run().json().at("errnum"), "30001") << bad;
        call.movie1 = shot.one.c_str();
        call.movie2 = bad.c_str();
        EXPECT_EQ(call.run().json().at("errnum"), "30001") << bad;
        call.movie2 = shot.two.c_str();
        call.band = bad.c_str();
        EXPECT_EQ(call.run().json().at("api_errstr"), "the band picture cannot be read: " + bad);
        call.band = nullptr;
        EXPECT_EQ(analyze(bad, thumbnail).json().at("errnum"), "10001") << bad;
    }
    EXPECT_TRUE(fs::is_fifo(pipe));
}

TEST_F(BadInput, LinkToAPictureIsAPicture) {
    const std::string link = dir.file("link.jpg");
    fs::create_symlink(shot.one, link);
    call.movie1 = link.c_str();
    EXPECT_EQ(call.run().state(), NQ360_FINISHED);
    EXPECT_EQ(analyze(link, thumbnail).state(), NQ360_FINISHED);
}

// ---- The band picture ----

TEST_F(BadInput, BandThatIsNoPicture) {
    const Bytes png = read_file(make_plain_picture(dir.file("a.png"), "320x20"));
    for (const std::string& band :
         {dir.file("missing.png"), broken("text.png", text("no picture")), broken("empty.png", {}),
          broken("zeros.jpg", zeros(4000)), broken("cut.png", slice(png, 0, 40)), dir.path()}) {
        call.band = band.c_str();
        const Outcome outcome = export_carefully();
        EXPECT_EQ(outcome.result, -1);
        const auto json = outcome.json();
        EXPECT_EQ(json.at("errnum"), "39999");
        EXPECT_EQ(json.at("errstr"), "an unknown error occurred");
        EXPECT_EQ(json.at("api_errstr"), "the band picture cannot be read: " + band);
    }
}

// The replies do not escape the texts of errors, so this one does so itself.
TEST_F(BadInput, BandOfAnOddNameThatIsNotThere) {
    const std::string band = dir.file("no \"band\" \\ here\n.png");
    call.band = band.c_str();
    EXPECT_EQ(export_carefully().json().at("api_errstr"),
              "the band picture cannot be read: " + dir.file("no \"band\" \\ here .png"));
}

TEST_F(BadInput, BandThatIsTooHigh) {
    const auto band_of = [&](int columns, int rows) {
        Bytes file = text("P5 " + std::to_string(columns) + " " + std::to_string(rows) + " 255\n");
        file.resize(file.size() + static_cast<size_t>(columns * rows), 100);
        return dir.file("band.pgm", file);
    };
    const std::string thin = band_of(1, 10000);
    call.band = thin.c_str();
    EXPECT_THAT(export_carefully().json().at("api_errstr").get<std::string>(), HasSubstr("too high"));
    // 2880 / 288 * 1500 rows can be scaled, but not be stacked twice below the lens pictures.
    const std::string portrait = band_of(288, 1500);
    call.band = portrait.c_str();
    EXPECT_EQ(export_carefully().json().at("api_errstr"),
              "the lens pictures and the band picture are 32886 rows high, more than the 32766 that can be stitched; "
              "take a flatter band picture");
    // 2880 rows in all are within reach.
    const std::string high = band_of(288, 1490);
    call.band = high.c_str();
    EXPECT_EQ(export_carefully().state(), NQ360_FINISHED);
}

TEST_F(BadInput, BandThatScalesToNothing) {
    const std::string band = broken("flat.pgm", text("P5 6000 1 255\n") + zeros(6000));
    call.band = band.c_str();
    EXPECT_EQ(export_carefully().json().at("api_errstr"), "the band picture cannot be read: " + band);
}

// ---- Names ----

TEST_F(BadInput, OddNamesAreNames) {
    for (const std::string name : kOddNames) {
        const Shot odd = {dir.file(name + "1.jpg"), dir.file(name + "2.JPG")};
        fs::copy_file(shot.one, odd.one);
        fs::copy_file(shot.two, odd.two);
        const Shot plain = shot;
        use(odd);
        use_output(dir.file(name + ".out.jpg"));
        const auto files = std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator());
        EXPECT_EQ(export_carefully().state(), NQ360_FINISHED) << name;
        EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), files + 1) << name;
        EXPECT_EQ(size_of_named(output), cv::Size(720, 360)) << name;

        const std::string small = dir.file(name + ".thumbnail.jpg");
        EXPECT_EQ(analyze(odd.one, small, 64).state(), NQ360_FINISHED) << name;
        EXPECT_EQ(size_of_named(small), cv::Size(64, 64)) << name;
        EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), files + 2) << name;

        const std::string band = dir.file(name + ".band.ppm");
        write_file(band, text("P6 64 4 255\n") + zeros(768));
        call.band = band.c_str();
        EXPECT_EQ(export_carefully().state(), NQ360_FINISHED) << name;
        call.band = nullptr;
        use(plain);
    }
}

TEST_F(BadInput, OddNamesRelativeToTheFolder) {
    for (const std::string name : kOddNames) {
        fs::copy_file(shot.one, dir.file(name + "1.jpg"));
        fs::copy_file(shot.two, dir.file(name + "2.jpg"));
        EXPECT_TRUE(true_in_child([&] {
            const std::string one = name + "1.jpg";
            const std::string two = name + "2.jpg";
            const std::string out = name + ".out.jpg";
            const std::string small = name + ".thumbnail.jpg";
            call.movie1 = one.c_str();
            call.movie2 = two.c_str();
            call.output = out.c_str();
            return chdir(dir.path().c_str()) == 0 && call.run().state() == NQ360_FINISHED &&
                   analyze(one, small, 64).state() == NQ360_FINISHED && fs::file_size(out) > 1000 &&
                   fs::file_size(small) > 500;
        })) << name;
    }
}

TEST_F(BadInput, PatternInAnOutputNameOverwritesNoOtherFile) {
    const std::string other = broken("p001.jpg", text("mine"));
    use_output(dir.file("p%03d.jpg"));
    EXPECT_EQ(export_carefully().state(), NQ360_FINISHED);
    EXPECT_EQ(analyze(shot.one, dir.file("p%d.jpg"), 64).state(), NQ360_FINISHED);
    EXPECT_EQ(read_file(other), text("mine"));
    EXPECT_TRUE(fs::exists(dir.file("p%d.jpg")));
}

TEST_F(BadInput, NamesLongerThan1023Bytes) {
    std::string folder = dir.path();
    for (int i = 0; i < 8; ++i) {
        folder += "/" + std::string(200, static_cast<char>('a' + i));
    }
    fs::create_directories(folder);
    const Shot deep = {folder + "/1.jpg", folder + "/2.jpg"};
    fs::copy_file(shot.one, deep.one);
    fs::copy_file(shot.two, deep.two);
    use(deep);
    use_output(folder + "/out.jpg");
    const Outcome outcome = export_carefully();
    EXPECT_EQ(outcome.state(), NQ360_FINISHED);
    EXPECT_EQ(outcome.json().at("export_path"), output);
    EXPECT_EQ(analyze(deep.one, folder + "/thumbnail.jpg", 64).json().at("createdThumbnail"), true);
    EXPECT_TRUE(fs::exists(folder + "/thumbnail.jpg"));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 3);  // no cut name
}

TEST_F(BadInput, NamesLongerThanTheSystemTakes) {
    const std::string endless = dir.path() + "/" + std::string(300, 'x') + ".jpg";
    const std::string deeper = dir.path() + std::string(6000, '/') + "1.jpg";
    for (const std::string& path : {endless, deeper}) {
        EXPECT_EQ(analyze(path).text().substr(0, 18), R"({"errnum":"10000",)");
        EXPECT_EQ(analyze(shot.one, path, 64).state(), NQ360_FAILED);
        call.output = path.c_str();
        EXPECT_EQ(call.run().state(), NQ360_FAILED);
    }
    EXPECT_TRUE(fs::exists(shot.one));
}

// ---- Outputs ----

TEST_F(BadInput, OutputOnAnInput) {
    const std::string hard = dir.file("hard.jpg");
    const std::string symbolic = dir.file("symbolic.jpg");
    fs::create_hard_link(shot.one, hard);
    fs::create_symlink(shot.two, symbolic);
    for (const std::string& path : {shot.one, shot.two, hard, symbolic}) {
        const Bytes before[] = {read_file(shot.one), read_file(shot.two)};
        call.output = path.c_str();
        EXPECT_EQ(call.run().json().at("errnum"), "30003");
        EXPECT_EQ(read_file(shot.one), before[0]);
        EXPECT_EQ(read_file(shot.two), before[1]);
    }
    EXPECT_TRUE(fs::is_symlink(symbolic));
}

TEST_F(BadInput, OtherKindsOfOutputAreAPictureOrAReply) {
    for (const char* name :
         {"x.mov", "x.mp4", "x.wav", "x.m4a", "x", "x.xyz", "x.", "x.txt", "x.gif", ".jpg.", "x.webp"}) {
        use_output(dir.file(name));
        EXPECT_EQ(export_carefully().state(), NQ360_FAILED) << name;
    }
    for (const char* name :
         {"x.png", "x.bmp", "x.tif", "x.y", "x.pgm", "x.jp2", "x.avif", "x.jxl", "x.xwd", ".jpg", "x.JPEG"}) {
        use_output(dir.file(name));
        const auto files = std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator());
        if (export_carefully().state() == NQ360_FINISHED) {
            EXPECT_EQ(nlohmann::json::parse(output_of({"exiftool", "-j", output})).at(0).at("FileType"), "JPEG")
                << name;
            fs::remove(output);
        }
        EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), files) << name;
    }
    use_output(dir.file("x.mov"));
    EXPECT_EQ(export_carefully().json().at("api_errstr"), "two pictures make a JPEG picture, not a file of kind mov");
}

// A movie may be named like a picture, and a movie in fragments passes for a still: what is written is told by what
// the files are, and metadata goes only where it belongs.
TEST_F(BadInput, MoviesNamedLikePictures) {
    const std::string movie = make_plain_movie(dir.file("a.mov"), "", "1440x1440");
    for (const char* name : {"1.jpg", "2.jpg"}) {
        fs::copy_file(movie, dir.file(name));
    }
    EXPECT_EQ(analyze_carefully(dir.file("1.jpg")).json().at("type"), "JPEG");
    use({dir.file("1.jpg"), dir.file("2.jpg")});
    EXPECT_EQ(export_carefully().json().at("api_errstr"),
              "a movie goes into a .mov or .mp4 file, not into one of kind image2");
    use_output(dir.file("out.mov"));
    EXPECT_EQ(export_carefully().json().at("errnum"), "39999");
}

TEST_F(BadInput, MoviesInFragments) {
    const Shot movies = {dir.file("1.mp4"), dir.file("2.mp4")};
    run_sample(
        {"movie", movies.one, movies.two, "--size", "1440", "--frames", "3", "--fragmented", "--codec", "mjpeg"});
    EXPECT_EQ(analyze_carefully(movies.one).state(), NQ360_FINISHED);
    use(movies);
    for (const char* name : {"out.jpg", "out.mov", "out.mp4"}) {
        use_output(dir.file(name));
        EXPECT_EQ(export_carefully().json().at("errnum"), "39999") << name;
    }
}

TEST_F(BadInput, FolderAsOutput) {
    fs::create_directory(output);
    EXPECT_EQ(call.run().state(), NQ360_FAILED);
    EXPECT_TRUE(fs::is_directory(output));
}

TEST_F(BadInput, ReadOnlyFolder) {
    const std::string closed = dir.file("closed");
    fs::create_directory(closed);
    fs::permissions(closed, fs::perms(0555));
    fs::permissions(dir.path(), fs::perms(0755));
    use_output(closed + "/out.jpg");
    EXPECT_TRUE(true_unprivileged([&] {
        return export_carefully().json().at("errnum") == "30003" &&
               analyze(shot.one, closed + "/t.jpg").json().at("errnum") == "10003";
    }));
}

// ---- Full disks ----

// Writing ends after so many bytes, whatever they are: of the picture, of the metadata, or when the file is closed.
TEST_F(BadInput, WritingThatFailsAtAnyByteOfAnExport) {
    ASSERT_EQ(call.run().state(), NQ360_FINISHED);
    const size_t whole = fs::file_size(output);
    fs::remove(output);
    std::vector<size_t> limits = {0, 1, 2, 100, 4095, 4096, 4097, whole - 4097, whole - 1, whole, whole + 1};
    for (size_t limit = 5000; limit < whole; limit += whole / 20) {
        limits.push_back(limit);
    }
    for (size_t back = 100; back < 2000; back += 100) {
        limits.push_back(whole - back);  // the metadata moves the picture's end
    }
    for (const size_t limit : limits) {
        Outcome outcome;
        {
            const FileSizeLimit full(limit);
            outcome = call.run();
        }
        EXPECT_EQ(outcome.state() == NQ360_FINISHED, limit >= whole) << limit << " of " << whole;
        EXPECT_EQ(fs::exists(output), limit >= whole) << limit << " of " << whole;
        fs::remove(output);
    }
}

TEST_F(BadInput, WritingThatFailsAtAnyByteOfAThumbnail) {
    ASSERT_EQ(analyze(shot.one, thumbnail, 320).state(), NQ360_FINISHED);
    const size_t whole = fs::file_size(thumbnail);
    for (size_t limit = 0; limit <= whole; limit += limit + 200 < whole ? 150 : 1 + (whole - limit) / 8) {
        fs::remove(thumbnail);
        Outcome outcome;
        {
            const FileSizeLimit full(limit);
            outcome = analyze(shot.one, thumbnail, 320);
        }
        EXPECT_EQ(outcome.state() == NQ360_FINISHED, limit >= whole) << limit << " of " << whole;
        EXPECT_EQ(fs::exists(thumbnail), limit >= whole) << limit << " of " << whole;
    }
}

TEST_F(BadInput, DiskThatFillsUpWhileWriting) {
    const ChildResult child = run_in_child([&] {
        const std::string volume = dir.file("volume");
        fs::create_directory(volume);
        mount_small_volume(volume);
        const FakeVolume plenty(1ULL << 40);  // as it was when it was asked
        use_output(volume + "/out.jpg");
        const Outcome outcome = export_carefully();
        const Outcome analysis = analyze(shot.one, volume + "/thumbnail.jpg");
        return outcome.json().at("errnum") == "39999" && analysis.json().at("errnum") == "19999" &&
               fs::is_empty(volume);
    });
    if (child.end == ChildEnd::kNotSetUp) {
        GTEST_SKIP() << child.words;
    }
    EXPECT_EQ(child.end, ChildEnd::kTrue) << child.words;
}
