#include <algorithm>
#include <array>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "support/media.h"
#include "support/picture.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;

// ---- Kernels, against the place that each byte goes to ----

constexpr int kLinesize = 13;
constexpr uint8_t kUntouched = 77;

struct Plane {
    int width;
    int rows;
    std::vector<uint8_t> bytes;

    uint8_t at(int row, int column) const { return bytes[static_cast<size_t>(row * kLinesize + column)]; }
    uint8_t& at(int row, int column) { return bytes[static_cast<size_t>(row * kLinesize + column)]; }
};

Plane noise(int width, int rows) {
    Plane plane{width, rows, std::vector<uint8_t>(static_cast<size_t>(rows * kLinesize))};
    std::mt19937 random(static_cast<unsigned>(width * 100 + rows));
    std::generate(plane.bytes.begin(), plane.bytes.end(), [&] { return static_cast<uint8_t>(random()); });
    return plane;
}

Plane untouched(const Plane& like) {
    return {like.width, like.rows, std::vector<uint8_t>(like.bytes.size(), kUntouched)};
}

// Where a kernel puts source byte (r, c) of a plane that is `width` wide.
using Place = std::pair<int, int> (*)(int r, int c, int width, int rows);

// `columns`: how many bytes of a row are moved.
Plane placed(const Plane& source, int columns, Place place) {
    Plane target = untouched(source);
    for (int r = 0; r < source.rows; ++r) {
        for (int c = 0; c < columns; ++c) {
            const auto [row, column] = place(r, c, source.width, source.rows);
            if (row >= 0 && row < source.rows && column >= 0 && column < columns) {
                target.at(row, column) = source.at(r, c);
            }
        }
    }
    return target;
}

constexpr std::pair<int, int> kShapes[] = {{8, 8}, {9, 5}, {5, 9}, {1, 1}, {13, 4}};

TEST(Kernel, WholeRowsAreCopied) {
    for (const auto& [width, rows] : kShapes) {
        Plane source = noise(width, rows);
        Plane target = untouched(source);
        rotate_data0(source.bytes.data(), target.bytes.data(), kLinesize, rows);
        EXPECT_EQ(target.bytes, source.bytes);
    }
}

TEST(Kernel, WholeRowsAreReversedAndTheSourceReturned) {
    for (const auto& [width, rows] : kShapes) {
        Plane source = noise(width, rows);
        Plane target = untouched(source);
        EXPECT_EQ(mirror_horizontal(source.bytes.data(), target.bytes.data(), kLinesize, rows), source.bytes.data());
        EXPECT_EQ(target.bytes, placed(source, kLinesize, [](int r, int c, int, int rows_here) {
                                    return std::make_pair(rows_here - 1 - r, c);
                                }).bytes);
    }
}

using Kernel = void (*)(uint8_t* src, uint8_t* dst, int linesize, int width, int rows);

void expect_places(Kernel kernel, Place place) {
    for (const auto& [width, rows] : kShapes) {
        Plane source = noise(width, rows);
        Plane target = untouched(source);
        kernel(source.bytes.data(), target.bytes.data(), kLinesize, width, rows);
        EXPECT_EQ(target.bytes, placed(source, width, place).bytes) << width << "x" << rows;
    }
}

TEST(Kernel, ColumnsAreReversed) {
    expect_places(mirror_vertical, [](int r, int c, int width, int) { return std::make_pair(r, width - 1 - c); });
}

TEST(Kernel, Turns180) {
    expect_places(rotate_data180,
                  [](int r, int c, int width, int rows) { return std::make_pair(rows - 1 - r, width - 1 - c); });
}

// Not a true turn unless the plane is square: the base column is the width's, deliberately.
TEST(Kernel, Turns90) {
    Plane source = noise(9, 5);
    Plane target = untouched(source);
    rotate_data90(source.bytes.data(), target.bytes.data(), kLinesize, 9, 5);
    EXPECT_EQ(target.at(0, 8), source.at(0, 0));
    EXPECT_EQ(target.at(4, 4), source.at(4, 4));
    EXPECT_EQ(target.at(3, 8), source.at(0, 3));
    EXPECT_EQ(target.at(0, 3), kUntouched) << "nothing comes from rows that are not there";
    expect_places(rotate_data90, [](int r, int c, int width, int) { return std::make_pair(c, width - 1 - r); });
}

TEST(Kernel, Turns270) {
    Plane source = noise(9, 5);
    Plane target = untouched(source);
    rotate_data270(source.bytes.data(), target.bytes.data(), kLinesize, 9, 5);
    EXPECT_EQ(target.at(0, 0), source.at(0, 8));
    EXPECT_EQ(target.at(4, 2), source.at(2, 4));
    EXPECT_EQ(target.at(0, 5), kUntouched);
    expect_places(rotate_data270, [](int r, int c, int width, int) { return std::make_pair(width - 1 - c, r); });
}

// ---- Orientations of a frame ----

FramePtr make_frame(int width, int height) {
    FramePtr frame(av_frame_alloc());
    frame->width = width;
    frame->height = height;
    frame->format = AV_PIX_FMT_YUVJ420P;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 32), 0);
    for (int plane = 0; plane < 3; ++plane) {
        std::fill_n(frame->data[plane], frame->linesize[plane] * (plane == 0 ? height : (height + 1) / 2), uint8_t{0});
    }
    return frame;
}

// Where a byte that stands in row 1, column 2 of a plane of 8 x 8 is found after the turn.
std::pair<int, int> where_it_goes(int orientation, int plane) {
    const FramePtr source = make_frame(plane == 0 ? 8 : 16, plane == 0 ? 8 : 16);
    const FramePtr target = make_frame(source->width, source->height);
    source->data[plane][source->linesize[plane] + 2] = 255;
    libavIF media("unused");
    media.rotate_frame(source.get(), target.get(), orientation);
    for (int row = 0; row < 8; ++row) {
        for (int column = 0; column < 8; ++column) {
            if (target->data[plane][row * target->linesize[plane] + column] == 255) {
                return {row, column};
            }
        }
    }
    return {-1, -1};
}

TEST(RotateFrame, DoesWhatEachOrientationAsksInEachPlane) {
    using Position = std::pair<int, int>;
    const std::pair<int, Position> cases[] = {{1, {1, 2}}, {2, {6, 2}}, {3, {6, 5}}, {4, {1, 5}},
                                              {6, {2, 6}}, {8, {5, 1}}, {0, {1, 2}}, {5, {1, 2}},
                                              {7, {1, 2}}, {9, {1, 2}}, {-1, {1, 2}}};
    for (const auto& [orientation, position] : cases) {
        for (int plane = 0; plane < 3; ++plane) {
            EXPECT_EQ(where_it_goes(orientation, plane), position) << orientation << " in plane " << plane;
        }
    }
}

TEST(RotateFrame, TurnsTheLastChromaOfOddSizesToo) {
    const FramePtr source = make_frame(7, 5);
    const FramePtr target = make_frame(7, 5);
    source->data[1][2 * source->linesize[1] + 3] = 255;
    libavIF media("unused");
    media.rotate_frame(source.get(), target.get(), 3);
    EXPECT_EQ(target->data[1][0], 255);
}

// ---- The thumbnail ----

// A picture whose quarters differ in Y: from the darkest above left to the brightest below right. The ripple makes it
// like a photograph; JPEG files of flat pictures are odd ones.
void make_quarters(const std::string& path, const std::string& size, const std::vector<std::string>& codec) {
    std::vector<std::string> arguments = {
        "-f",  "lavfi",
        "-i",  "color=s=" + size + ":r=30000/1001",
        "-vf", "geq=lum='if(lt(X,W/2),if(lt(Y,H/2),40,90),if(lt(Y,H/2),140,200))+5*sin(X*Y)':cb=100:cr=160"};
    arguments.insert(arguments.end(), codec.begin(), codec.end());
    arguments.push_back("file:" + path);
    run_ffmpeg(arguments);
}

// The same in the full range of pictures: (y - 16) * 255 / 219 of each value, (c - 128) * 255 / 224 + 128 of colour.
constexpr int kAboveLeft = 28;
constexpr int kAboveRight = 144;
constexpr int kBelowLeft = 86;
constexpr int kBelowRight = 214;
constexpr int kBlue = 96;
constexpr int kRed = 164;

std::string quarters_in(const TempDir& dir, const std::string& size) {
    const std::string path = dir.file("quarters.jpg");
    make_quarters(path, size, {"-frames:v", "1", "-q:v", "2", "-f", "image2", "-update", "1"});
    return path;
}

int write_thumbnail(const std::string& input, const std::string& output, int width, int orientation = 1,
                    bool quick = false) {
    libavIF media(input.c_str());
    EXPECT_EQ(media.open_input_file(0), 0) << media.error_text;
    media.quick_thumbnail = quick;
    return media.write_tuhmbnail(output.c_str(), width, orientation);
}

using Quarters = std::array<double, 4>;  // above left, above right, below left, below right

Quarters quarters_of(const cv::Mat& plane) {
    const int w = plane.cols / 2;
    const int h = plane.rows / 2;
    Quarters means{};
    for (int i = 0; i < 4; ++i) {
        // Without the edges, which scaling and encoding blur.
        const cv::Rect inside(i % 2 * w + w / 8, i / 2 * h + h / 8, w * 3 / 4, h * 3 / 4);
        means[static_cast<size_t>(i)] = mean_of(plane(inside));
    }
    return means;
}

void expect_quarters(const std::string& path, const Quarters& expected) {
    const Quarters found = quarters_of(plane_of(path, 'y'));
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_NEAR(found[i], expected[i], 3) << "quarter " << i;
    }
}

TEST(Thumbnail, FollowsTheInputsShape) {
    TempDir dir;
    const struct {
        const char* size;
        std::vector<std::pair<int, cv::Size>> thumbnails;  // by the width asked for
    } cases[] = {{"1920x1080", {{320, {320, 180}}, {0, {1920, 1080}}, {1920, {1920, 1080}}, {1921, {1920, 1080}}}},
                 {"640x480", {{101, {101, 75}}}},
                 {"480x640", {{99, {99, 132}}}}};
    for (const auto& one : cases) {
        const std::string input = dir.file(std::string(one.size) + ".jpg");
        run_ffmpeg({"-f", "lavfi", "-i", std::string("testsrc2=s=") + one.size, "-frames:v", "1", "-update", "1",
                    "file:" + input});
        for (const auto& [width, size] : one.thumbnails) {
            const std::string output = dir.file("thumbnail.jpg");
            ASSERT_EQ(write_thumbnail(input, output, width), 0) << one.size << " to " << width;
            EXPECT_EQ(size_of(output), size);
        }
    }
}

TEST(Thumbnail, ShowsThePicture) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    const std::string output = dir.file("thumbnail.jpg");
    ASSERT_EQ(write_thumbnail(input, output, 161), 0);
    expect_quarters(output, {kAboveLeft, kAboveRight, kBelowLeft, kBelowRight});
    EXPECT_NEAR(mean_of(plane_of(output, 'u')), kBlue, 2);
    EXPECT_NEAR(mean_of(plane_of(output, 'v')), kRed, 2);
}

TEST(Thumbnail, OfOddSizeHasColourUpToItsEdges) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    const std::string output = dir.file("thumbnail.jpg");
    for (int orientation : {1, 2, 3, 4}) {
        ASSERT_EQ(write_thumbnail(input, output, 101, orientation), 0);
        const cv::Mat u = plane_of(output, 'u');
        EXPECT_NEAR(mean_of(u.col(u.cols - 1)), kBlue, 3) << orientation;
        EXPECT_NEAR(mean_of(u.row(u.rows - 1)), kBlue, 3) << orientation;
    }
}

TEST(Thumbnail, IsTurnedAsTheOrientationSays) {
    TempDir dir;
    const std::string input = quarters_in(dir, "480x480");
    const std::string output = dir.file("thumbnail.jpg");
    constexpr int a = kAboveLeft;
    constexpr int b = kAboveRight;
    constexpr int c = kBelowLeft;
    constexpr int d = kBelowRight;
    const std::pair<int, Quarters> cases[] = {{1, {a, b, c, d}}, {2, {c, d, a, b}}, {3, {d, c, b, a}},
                                              {4, {b, a, d, c}}, {5, {a, b, c, d}}, {6, {c, a, d, b}},
                                              {7, {a, b, c, d}}, {8, {b, d, a, c}}};
    for (const auto& [orientation, expected] : cases) {
        SCOPED_TRACE(orientation);
        ASSERT_EQ(write_thumbnail(input, output, 128, orientation), 0);
        expect_quarters(output, expected);
    }
}

// What a turn of a picture that is not square leaves open is black.
TEST(Thumbnail, TurnedByAQuarterKeepsItsSize) {
    TempDir dir;
    const std::string input = quarters_in(dir, "640x320");
    const std::string output = dir.file("thumbnail.jpg");
    for (int orientation : {6, 8}) {
        SCOPED_TRACE(orientation);
        ASSERT_EQ(write_thumbnail(input, output, 200, orientation), 0);
        const cv::Mat luma = plane_of(output, 'y');
        EXPECT_EQ(luma.size(), cv::Size(200, 100));
        const cv::Mat covered = orientation == 6 ? luma.colRange(110, 190) : luma.colRange(10, 90);
        const cv::Mat open = orientation == 6 ? luma.colRange(0, 90) : luma.colRange(110, 200);
        EXPECT_GT(mean_of(covered), 30);
        EXPECT_LT(mean_of(open), 4);
        const cv::Mat u = plane_of(output, 'u');
        EXPECT_NEAR(mean_of(orientation == 6 ? u.colRange(0, 45) : u.colRange(55, 100)), 128, 3);
    }
}

TEST(Thumbnail, OfAMovieIsItsFirstFrame) {
    TempDir dir;
    const std::vector<std::vector<std::string>> codecs = {
        {"-c:v", "mjpeg", "-q:v", "2"},
        {"-c:v", "libx264", "-profile:v", "baseline"},
        {"-c:v", "libx264", "-profile:v", "main", "-bf", "2"},
    };
    for (std::vector<std::string> codec : codecs) {
        for (const char* frames : {"1", "5"}) {
            const std::string input = dir.file("movie.mov");
            codec.insert(codec.end(), {"-frames:v", frames});
            make_quarters(input, "320x240", codec);
            const std::string output = dir.file("thumbnail.jpg");
            ASSERT_EQ(write_thumbnail(input, output, 160), 0) << codec[1] << " of " << frames;
            EXPECT_EQ(size_of(output), cv::Size(160, 120));
            expect_quarters(output, {kAboveLeft, kAboveRight, kBelowLeft, kBelowRight});
        }
    }
}

TEST(Thumbnail, SaysNothingOnTheErrorStream) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    const std::string output = dir.file("100% of a:b.jpg");
    EXPECT_EQ(logged([&] { write_thumbnail(input, output, 160); }), "");
}

TEST(Thumbnail, ReplacesAFileOfItsName) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    const std::string output = dir.file("thumbnail.jpg", zeros(500000));
    ASSERT_EQ(write_thumbnail(input, output, 160), 0);
    EXPECT_LT(std::filesystem::file_size(output), 100000u);
}

TEST(Thumbnail, GoesByItsNameAloneWhateverItLooksLike) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    const std::string other = dir.file("t001.jpg", text("untouched"));
    for (const char* name : {"t%03d.jpg", "100%.jpg", "a:b.jpg", "*.jpg", "\"q\" \xE3\x81\x82.jpg"}) {
        ASSERT_EQ(write_thumbnail(input, dir.file(name), 160), 0) << name;
        const std::string plain = dir.file("plain.jpg");
        std::filesystem::rename(dir.file(name), plain);
        EXPECT_EQ(size_of(plain), cv::Size(160, 120)) << name;
    }
    EXPECT_EQ(to_string(read_file(other)), "untouched");
}

// The kind of file is the muxer's, and every picture goes by the one for JPEG.
TEST(Thumbnail, IsAJpegUnderAnyPicturesName) {
    TempDir dir;
    const std::string output = dir.file("thumbnail.png");
    ASSERT_EQ(write_thumbnail(quarters_in(dir, "320x240"), output, 160), 0);
    EXPECT_EQ(slice(read_file(output), 0, 2), jpeg_start());
}

// ---- Quick ones ----

// Whether a quick thumbnail is another one than that of the picture decoded whole.
bool quick_differs(const TempDir& dir, const std::string& input, int width) {
    const std::string whole = dir.file("whole.jpg");
    const std::string quick = dir.file("quick.jpg");
    EXPECT_EQ(write_thumbnail(input, whole, width), 0);
    EXPECT_EQ(write_thumbnail(input, quick, width, 1, true), 0);
    EXPECT_EQ(size_of(quick), size_of(whole));
    return read_file(quick) != read_file(whole);
}

TEST(QuickThumbnail, ShowsThePictureAsTheOrientationSays) {
    TempDir dir;
    const std::string input = quarters_in(dir, "480x480");
    const std::string output = dir.file("thumbnail.jpg");
    for (const int width : {240, 80, 40}) {
        SCOPED_TRACE(width);
        EXPECT_TRUE(quick_differs(dir, input, width));
        ASSERT_EQ(write_thumbnail(input, output, width, 1, true), 0);
        expect_quarters(output, {kAboveLeft, kAboveRight, kBelowLeft, kBelowRight});
        EXPECT_NEAR(mean_of(plane_of(output, 'u')), kBlue, 2);
        EXPECT_NEAR(mean_of(plane_of(output, 'v')), kRed, 2);
        ASSERT_EQ(write_thumbnail(input, output, width, 6, true), 0);
        expect_quarters(output, {kBelowLeft, kAboveLeft, kBelowRight, kAboveRight});
    }
}

TEST(QuickThumbnail, IsThatOfTheWholePictureWhereHalvesWouldBeTooCoarseOrOdd) {
    TempDir dir;
    EXPECT_FALSE(quick_differs(dir, quarters_in(dir, "480x480"), 241));
    EXPECT_FALSE(quick_differs(dir, quarters_in(dir, "480x480"), 0));
    EXPECT_FALSE(quick_differs(dir, quarters_in(dir, "482x480"), 40));
    EXPECT_FALSE(quick_differs(dir, quarters_in(dir, "480x482"), 40));
    EXPECT_TRUE(quick_differs(dir, quarters_in(dir, "484x484"), 40)) << "once";
}

TEST(QuickThumbnail, ShowsEveryKindOfJpeg) {
    TempDir dir;
    const std::string pixels = dir.file("pixels.ppm");
    run_ffmpeg({"-i", quarters_in(dir, "480x480"), pixels});
    const std::string input = dir.file("input.jpg");
    const std::vector<std::string> reducible[] = {{"-sample", "1x1"}, {"-sample", "2x1"}, {"-sample", "1x2"},
                                                  {"-sample", "4x1"}, {"-progressive"},   {"-grayscale"}};
    // What FFmpeg decodes to their own sizes alone.
    const std::vector<std::string> whole[] = {{"-sample", "1x4"}, {"-sample", "4x2"}, {"-sample", "2x1,1x1,2x1"}};
    const auto expect_kind = [&](std::vector<std::string> options, bool differs) {
        SCOPED_TRACE(options.back());
        options.insert(options.begin(), {"cjpeg", "-quality", "95"});
        options.insert(options.end(), {"-outfile", input, pixels});
        output_of(options);
        EXPECT_EQ(quick_differs(dir, input, 40), differs);
        // Without the brightest, which R, G and B on the way do not hold.
        const Quarters found = quarters_of(plane_of(dir.file("quick.jpg"), 'y'));
        EXPECT_NEAR(found[0], kAboveLeft, 3);
        EXPECT_NEAR(found[1], kAboveRight, 3);
        EXPECT_NEAR(found[2], kBelowLeft, 3);
    };
    for (const auto& options : reducible) {
        expect_kind(options, true);
    }
    for (const auto& options : whole) {
        expect_kind(options, false);
    }
}

TEST(QuickThumbnail, OfAMovieIsItsFirstFrame) {
    TempDir dir;
    const std::string input = dir.file("movie.mov");
    for (const char* codec : {"mjpeg", "libx264"}) {
        SCOPED_TRACE(codec);
        make_quarters(input, "480x480", {"-c:v", codec, "-q:v", "2", "-frames:v", "3"});
        EXPECT_EQ(quick_differs(dir, input, 40), codec == std::string("mjpeg"));
        expect_quarters(dir.file("quick.jpg"), {kAboveLeft, kAboveRight, kBelowLeft, kBelowRight});
        // The bit rate is the movie's, scaled by the area, whatever size it is decoded to.
        const auto size = [&](const char* name) { return static_cast<double>(read_file(dir.file(name)).size()); };
        EXPECT_NEAR(size("quick.jpg") / size("whole.jpg"), 1, 0.2);
    }
}

// ---- Failures ----

TEST(ThumbnailFailure, OfANameWithoutAKindOfPicture) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    const std::string output = dir.file("thumbnail.xyz");
    EXPECT_EQ(media.write_tuhmbnail(output.c_str(), 160, 1), AVERROR_EXIT);
    EXPECT_EQ(media.error_text, "Colud Not Open OutputFile:" + output);
    EXPECT_FALSE(std::filesystem::exists(output));
}

TEST(ThumbnailFailure, LeavesNoOutputOpen) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_LT(media.write_tuhmbnail(dir.file("missing/t.jpg").c_str(), 160, 1), 0);
    EXPECT_EQ(media.output_format, nullptr);
    EXPECT_EQ(media.sws_context, nullptr);
    EXPECT_STREQ(media.error_text, "Input/output error");
}

TEST(ThumbnailFailure, OfANegativeWidth) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    EXPECT_LT(write_thumbnail(input, dir.file("t.jpg"), -1), 0);
    EXPECT_LT(write_thumbnail(input, dir.file("t.jpg"), -2147483647 - 1), 0);
}

// 2,000 x 1 pixels at a width of 10 have a height of 0.
TEST(ThumbnailFailure, OfAPictureTooFlatForItsWidth) {
    TempDir dir;
    const std::string input = dir.file("flat.png");
    run_ffmpeg({"-f", "lavfi", "-i", "color=s=2000x2", "-frames:v", "1", "-update", "1", "file:" + input});
    EXPECT_LT(write_thumbnail(input, dir.file("t.jpg"), 10), 0);
    EXPECT_EQ(write_thumbnail(input, dir.file("t.jpg"), 1000), 0);
}

TEST(ThumbnailFailure, OfAFileOfZeros) {
    TempDir dir;
    const std::string input = dir.file("zeros.jpg", zeros(10000));
    EXPECT_EQ(write_thumbnail(input, dir.file("t.jpg"), 160), AVERROR_INVALIDDATA);
    EXPECT_FALSE(std::filesystem::exists(dir.file("t.jpg")));
}

TEST(ThumbnailFailure, OfAKindOfFileWithoutPictures) {
    TempDir dir;
    const std::string input = quarters_in(dir, "320x240");
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_EQ(media.write_tuhmbnail(dir.file("t.wav").c_str(), 160, 1), AVERROR_EXIT);
    EXPECT_STREQ(media.error_text, "Colud not finde encoder");
}

// A movie whose pictures are all damaged ends without one: no thumbnail, and not the claim of one.
TEST(ThumbnailFailure, OfAMovieWithoutAPicture) {
    TempDir dir;
    const std::string input = dir.file("movie.mov");
    make_quarters(input, "320x240", {"-c:v", "mjpeg", "-q:v", "2", "-frames:v", "2"});
    Bytes bytes = read_file(input);
    for (const StoredPacket& packet : packets_of(input)) {
        overwrite(bytes, static_cast<size_t>(packet.position), zeros(packet.bytes.size()));
    }
    write_file(input, bytes);
    libavIF media(input.c_str());
    ASSERT_EQ(media.open_input_file(0), 0);
    EXPECT_EQ(media.write_tuhmbnail(dir.file("t.jpg").c_str(), 160, 1), AVERROR_INVALIDDATA);
    EXPECT_FALSE(std::filesystem::exists(dir.file("t.jpg")));
}

}  // namespace
