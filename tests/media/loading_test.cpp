#include "media/loading.h"

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <sys/stat.h>

#include "support/bytes.h"
#include "support/command.h"
#include "support/open_files.h"
#include "support/plain_media.h"
#include "support/temp_dir.h"

using namespace test_support;
using testing::HasSubstr;

namespace {

// The kinds of planes: 0 Y, 1 U, 2 V.
using PixelOf = std::function<int(int plane, int row, int column)>;

int distinct(int plane, int row, int column) {
    return (plane * 80 + row * 17 + column) % 256;
}

class Loading : public testing::Test {
  protected:
    // A picture file that holds 4:2:0 planes as they are, of even columns and rows.
    std::string planes_file(int columns, int rows, const PixelOf& pixel = distinct) {
        Bytes file = text("P5 " + std::to_string(columns) + " " + std::to_string(rows + rows / 2) + " 255\n");
        for (int y = 0; y < rows; ++y) {
            for (int x = 0; x < columns; ++x) {
                file.push_back(static_cast<uint8_t>(pixel(0, y, x)));
            }
        }
        for (int y = 0; y < rows / 2; ++y) {
            for (int plane = 1; plane <= 2; ++plane) {
                for (int x = 0; x < columns / 2; ++x) {
                    file.push_back(static_cast<uint8_t>(pixel(plane, y, x)));
                }
            }
        }
        return dir.file("planes.pgmyuv", file);
    }

    std::string colour_file(int columns, int rows, const Bytes& rgb) {
        Bytes file = text("P6 " + std::to_string(columns) + " " + std::to_string(rows) + " 255\n");
        for (int i = 0; i < columns * rows; ++i) {
            file += rgb;
        }
        return dir.file("colour.ppm", file);
    }

    TempDir dir;
};

// Whether all planes hold these pixels.
void expect_planes(const ImageFrame& frame, const std::vector<cv::Size>& sizes, const PixelOf& pixel) {
    ASSERT_EQ(frame.YUVMats.size(), sizes.size());
    for (size_t plane = 0; plane < sizes.size(); ++plane) {
        const cv::Mat& mat = frame.YUVMats[plane];
        ASSERT_EQ(mat.size(), sizes[plane]) << "plane " << plane;
        ASSERT_EQ(mat.type(), CV_8UC1);
        EXPECT_TRUE(mat.isContinuous());
        for (int y = 0; y < mat.rows; ++y) {
            for (int x = 0; x < mat.cols; ++x) {
                ASSERT_EQ(mat.at<uint8_t>(y, x), pixel(static_cast<int>(plane), y, x))
                    << "plane " << plane << " row " << y << " column " << x;
            }
        }
    }
}

// The pixel of a rearranged band whose planes had `rows` rows and `half` columns in each half.
int rearranged(int plane, int row, int column, int rows, int half) {
    const bool left = row < rows + 3;
    const int inner = left ? row - 2 : row - (rows + 4);
    return distinct(plane, std::min(std::max(inner, 0), rows - 1), left ? column : column + half);
}

double mean(const ImageFrame& frame, size_t plane) {
    return cv::mean(frame.YUVMats.at(plane))[0];
}

}  // namespace

// ---- imageframe_from_imagefile ----

TEST_F(Loading, PictureOfItsOwnWidthIsTakenAsItIs) {
    const ImageFrame frame = imageframe_from_imagefile(planes_file(16, 6).c_str(), 16, FRAME_TYPE_YUV420);
    EXPECT_EQ(frame.frameType, FRAME_TYPE_YUV420);
    expect_planes(frame, {{16, 6}, {8, 3}, {8, 3}}, distinct);
}

TEST_F(Loading, PictureIsScaledToTheWidth) {
    const std::string path = planes_file(16, 6, [](int plane, int, int) { return 50 + 60 * plane; });
    const ImageFrame frame = imageframe_from_imagefile(path.c_str(), 40, FRAME_TYPE_YUV420);
    expect_planes(frame, {{40, 15}, {20, 7}, {20, 7}}, [](int plane, int, int) { return 50 + 60 * plane; });
}

TEST_F(Loading, RowsAreCutOffNotRounded) {
    // 10 / 16 * 6 is 3.75.
    const ImageFrame frame = imageframe_from_imagefile(planes_file(16, 6).c_str(), 10, FRAME_TYPE_YUV420);
    EXPECT_EQ(frame.YUVMats.at(0).size(), cv::Size(10, 3));
}

TEST_F(Loading, TypeIsSetWhateverItIs) {
    const auto type = static_cast<ImageFrameType>(5);
    EXPECT_EQ(imageframe_from_imagefile(planes_file(16, 6).c_str(), 16, type).frameType, type);
}

TEST_F(Loading, PictureWithoutChromaColumnsKeepsItsTypeAndHasNoPlanes) {
    const ImageFrame frame = imageframe_from_imagefile(planes_file(2, 8).c_str(), 1, FRAME_TYPE_YUV420);
    EXPECT_EQ(frame.frameType, FRAME_TYPE_YUV420);
    EXPECT_TRUE(frame.YUVMats.empty());
}

TEST_F(Loading, ColoursAreBt601InLimitedRange) {
    const ImageFrame red = imageframe_from_imagefile(colour_file(16, 8, {255, 0, 0}).c_str(), 16, FRAME_TYPE_YUV420);
    EXPECT_NEAR(mean(red, 0), 81, 1.5);
    EXPECT_NEAR(mean(red, 1), 90, 1.5);
    EXPECT_NEAR(mean(red, 2), 240, 1.5);
}

// A JPEG's full range is squeezed although the panorama is a JPEG again; established.
TEST_F(Loading, WhiteOfAJpegBecomes235) {
    const std::string path =
        make_plain_picture(dir.file("white.jpg"), "64x16", {"-vf", "format=yuvj420p,geq=lum=255:cb=128:cr=128"});
    EXPECT_NEAR(mean(imageframe_from_imagefile(path.c_str(), 64, FRAME_TYPE_YUV420), 0), 235, 1);
}

TEST_F(Loading, OtherPicturesAndMoviesAreRead) {
    const std::vector<std::string> grey = {"-vf", "geq=lum=126:cb=128:cr=128"};
    for (const char* name : {"a.png", "a.bmp", "a.tiff", "a.jpg", "a.ppm"}) {
        const std::string path = make_plain_picture(dir.file(name), "64x16", grey);
        EXPECT_NEAR(mean(imageframe_from_imagefile(path.c_str(), 32, FRAME_TYPE_YUV420), 0), 126, 2) << name;
    }
    const std::string alpha = make_plain_picture(dir.file("alpha.png"), "64x16", {"-pix_fmt", "rgba"});
    EXPECT_EQ(imageframe_from_imagefile(alpha.c_str(), 32, FRAME_TYPE_YUV420).YUVMats.size(), 3u);
    const std::string deep = make_plain_picture(dir.file("deep.png"), "64x16", {"-pix_fmt", "rgb48be"});
    EXPECT_EQ(imageframe_from_imagefile(deep.c_str(), 32, FRAME_TYPE_YUV420).YUVMats.size(), 3u);
    const std::string movie = make_plain_movie(dir.file("a.mov"), "pcm_s16le", "64x16");
    EXPECT_EQ(imageframe_from_imagefile(movie.c_str(), 32, FRAME_TYPE_YUV420).YUVMats.size(), 3u);
}

TEST_F(Loading, FileThatIsNoPictureIsNotLoadedAndNothingIsLogged) {
    const std::string pipe = dir.file("pipe.png");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const std::string missing = dir.file("missing.png");
    for (const char* path :
         {missing.c_str(), pipe.c_str(), dir.path().c_str(), "/dev/zero", "", (const char*)nullptr}) {
        ImageFrame frame;
        frame.frameType = FRAME_TYPE_YUV420;
        EXPECT_EQ(logged([&] { frame = imageframe_from_imagefile(path, 16, FRAME_TYPE_YUV420); }), "");
        EXPECT_EQ(frame.frameType, FRAME_TYPE_NOTLOAD) << (path ? path : "null");
        EXPECT_TRUE(frame.YUVMats.empty());
        EXPECT_EQ(imageframe_from_bandfile(path, 16, FRAME_TYPE_YUV420).frameType, FRAME_TYPE_NOTLOAD);
    }
}

TEST_F(Loading, DamagedFileIsNotLoaded) {
    const Bytes whole = read_file(make_plain_picture(dir.file("whole.png"), "64x16"));
    for (const Bytes& content : {Bytes{}, text("no picture"), zeros(5000), slice(whole, 0, 20)}) {
        for (const char* name : {"a.png", "a.jpg", "a.ppm", "a.mov", "a"}) {
            EXPECT_EQ(imageframe_from_imagefile(dir.file(name, content).c_str(), 16, FRAME_TYPE_YUV420).frameType,
                      FRAME_TYPE_NOTLOAD)
                << name << " of " << content.size() << " bytes";
        }
    }
}

TEST_F(Loading, SizesWithoutPixelsAreNotLoaded) {
    const std::string path = planes_file(16, 6);
    for (const int width : {0, -1, -16, 2}) {  // 2 / 16 * 6 is below 1
        EXPECT_EQ(imageframe_from_imagefile(path.c_str(), width, FRAME_TYPE_YUV420).frameType, FRAME_TYPE_NOTLOAD)
            << width;
    }
}

TEST_F(Loading, NoFileStaysOpen) {
    const std::string good = planes_file(16, 6);
    const std::string bad = dir.file("bad.png", text("no picture"));
    const auto before = open_files();
    for (int i = 0; i < 5; ++i) {
        imageframe_from_bandfile(good.c_str(), 16, FRAME_TYPE_YUV420);
        imageframe_from_bandfile(bad.c_str(), 16, FRAME_TYPE_YUV420);
    }
    EXPECT_EQ(open_files(), before);
}

// ---- imageframe_from_bandfile ----

TEST_F(Loading, BandHasItsLeftHalfAboveItsRightHalf) {
    const ImageFrame band = imageframe_from_bandfile(planes_file(16, 6).c_str(), 8, FRAME_TYPE_YUV420);
    EXPECT_EQ(band.frameType, FRAME_TYPE_YUV420);
    expect_planes(band, {{8, 18}, {4, 12}, {4, 12}}, [](int plane, int row, int column) {
        return plane == 0 ? rearranged(0, row, column, 6, 8) : rearranged(plane, row, column, 3, 4);
    });
}

TEST_F(Loading, BandRowsFollowTheFilesShape) {
    struct Case {
        int columns, rows, width;
    };
    for (const auto& [columns, rows, width] :
         {Case{16, 6, 8}, {16, 6, 1440}, {1000, 36, 1440}, {998, 50, 1936}, {30, 14, 40}, {6000, 100, 1440}}) {
        const ImageFrame band = imageframe_from_bandfile(planes_file(columns, rows).c_str(), width, FRAME_TYPE_YUV420);
        const int scaled = static_cast<int>(static_cast<double>(2 * width) / columns * rows);
        ASSERT_EQ(band.YUVMats.size(), 3u);
        EXPECT_EQ(band.YUVMats[0].size(), cv::Size(width, 2 * scaled + 6));
        EXPECT_EQ(band.YUVMats[1].size(), cv::Size(width / 2, 2 * (scaled / 2) + 6));
        EXPECT_EQ(band.YUVMats[2].size(), band.YUVMats[1].size());
    }
}

TEST_F(Loading, OddWidthGivesWholeHalves) {
    const ImageFrame band = imageframe_from_bandfile(planes_file(14, 6).c_str(), 7, FRAME_TYPE_YUV420);
    expect_planes(band, {{7, 18}, {3, 12}, {3, 12}}, [](int plane, int row, int column) {
        return plane == 0 ? rearranged(0, row, column, 6, 7) : rearranged(plane, row, column, 3, 3);
    });
}

TEST_F(Loading, BandOfOneRowIsThatRowEightTimes) {
    // 64 / 128 * 2 rows: halving leaves no row of chroma, so there is one all the same.
    const std::string path = planes_file(128, 2, [](int plane, int, int column) {
        return plane == 0 ? (column < 64 ? 40 : 200) : (column < 32 ? 60 : 180) + plane;
    });
    const ImageFrame band = imageframe_from_bandfile(path.c_str(), 32, FRAME_TYPE_YUV420);
    ASSERT_EQ(band.YUVMats.size(), 3u);
    EXPECT_EQ(band.YUVMats[0].size(), cv::Size(32, 8));
    EXPECT_EQ(band.YUVMats[1].size(), cv::Size(16, 8));
    for (size_t plane = 0; plane < 3; ++plane) {
        const cv::Mat& mat = band.YUVMats[plane];
        const int dark = plane == 0 ? 40 : 60 + static_cast<int>(plane);
        const int bright = plane == 0 ? 200 : 180 + static_cast<int>(plane);
        for (int row = 0; row < 8; ++row) {
            // Away from the step, which scaling softens.
            EXPECT_NEAR(mat.at<uint8_t>(row, mat.cols / 2), row < 4 ? dark : bright, 1) << plane << " " << row;
            EXPECT_EQ(cv::norm(mat.row(row), mat.row(row < 4 ? 0 : 4), cv::NORM_INF), 0);
        }
    }
}

TEST_F(Loading, BandWithoutRowsIsNotLoaded) {
    EXPECT_EQ(imageframe_from_bandfile(planes_file(36, 2).c_str(), 8, FRAME_TYPE_YUV420).frameType, FRAME_TYPE_NOTLOAD);
}

TEST_F(Loading, BandThatCannotBeAddressedIsToldWithItsSize) {
    for (const auto& [columns, rows] : {std::pair(2, 10000), {2, 30}}) {
        const std::string path = planes_file(columns, rows);
        try {
            imageframe_from_bandfile(path.c_str(), 1440, FRAME_TYPE_YUV420);
            FAIL() << "nothing was thrown";
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr("too high"));
            EXPECT_THAT(error.what(), HasSubstr("2x" + std::to_string(rows)));
        }
    }
}
