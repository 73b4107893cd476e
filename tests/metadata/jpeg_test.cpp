#include "metadata/jpeg.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "metadata/exif.h"
#include "metadata/spherical.h"
#include "support/bytes.h"
#include "support/command.h"
#include "support/limits.h"
#include "support/temp_dir.h"
#include "support/thrown.h"

using namespace test_support;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr char kNoApp1[] = "APP1(0xFFE1) MAKER not Found";

// What each reader answers about one file.
struct Read {
    int exif_result = 1;
    int xml_result = 1;
    Bytes exif;
    bool exif_found = false;
    std::string exif_error;
    std::string xml;  // up to its first zero byte
    bool xml_found = false;
    std::string xml_error;
    std::string log;
};

Read read_jpeg(const std::string& path) {
    Read read;
    read.log = logged([&] {
        _jpeg jpeg(path.c_str(), false);
        uint8_t* block = nullptr;
        read.exif_result = jpeg.exif_data(&block);
        read.exif_error = jpeg.error_text;
        read.exif_found = block != nullptr;
        char* xmp = nullptr;
        read.xml_result = jpeg.xml_data(&xmp);
        read.xml_error = jpeg.error_text;
        read.xml_found = xmp != nullptr;
        jpeg.close_stream();
        // The buffers outlive the stream.
        if (block) {
            read.exif.assign(block, block + jpeg.exif_length);
        }
        if (xmp) {
            read.xml = xmp;
        }
    });
    return read;
}

class Jpeg : public testing::Test {
  protected:
    std::string file(const Bytes& bytes) { return dir.file("picture.jpg", bytes); }
    Read read(const Bytes& bytes) { return read_jpeg(file(bytes)); }

    // Inserts a text and returns the text thrown.
    std::string write(const std::string& path, const char* xmp) {
        std::string error;
        logged([&] {
            _jpeg jpeg(path.c_str(), true);
            error = thrown([&] {
                jpeg.wtire_xmp_data(xmp);
                jpeg.close_stream();
            });
        });
        return error;
    }

    // A small picture that other programs read.
    std::string real_picture() {
        const std::string path = dir.file("real.jpg");
        output_of({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=64x32", "-frames:v", "1", path});
        return path;
    }

    TempDir dir;
    const Bytes block = camera_block(MetadataBlock::tiff());
};

}  // namespace

TEST_F(Jpeg, HandsOutExifAndXmp) {
    const Read r = read(jpeg_start() + jpeg_segment(kApp0, text("JFIF")) + exif_segment(block) + xmp_segment("<xmp>") +
                        jpeg_end());
    EXPECT_EQ(r.exif_result, 0);
    EXPECT_EQ(r.exif, block);
    EXPECT_EQ(r.xml_result, 0);
    EXPECT_THAT(r.xml, StartsWith("<xmp>"));
    EXPECT_EQ(r.log,
              "[.jpeg analyze] open stream\n"
              "[.jpeg analyze] exif_data start\n"
              "[.jpeg analyze] app1 maker\n"
              "[.jpeg analyze] app1 maker\n"
              "[.jpeg analyze] end maker\n"
              "[.jpeg analyze] exif_data end \n"
              "[.jpeg analyze] app1 maker\n"
              "[.jpeg analyze] app1 maker\n"
              "[.jpeg analyze] end maker\n"
              "[.jpeg analyze] close stream\n");
}

TEST_F(Jpeg, PngIsNoJpeg) {
    const Read r = read(Bytes{0x89, 0x50, 0x4E, 0x47});
    EXPECT_EQ(r.exif_result, -1);
    EXPECT_FALSE(r.exif_found);
    EXPECT_EQ(r.exif_error, "Not Jpeg File");
    EXPECT_EQ(r.xml_result, -1);
    EXPECT_EQ(r.xml_error, "Not Jpeg File");
    EXPECT_THAT(r.log, HasSubstr("[.jpeg analyze] start Marker:5089 Not Jpeg File\n"));
}

TEST_F(Jpeg, EmptyFileIsNoJpeg) {
    const Read r = read({});
    EXPECT_EQ(r.exif_result, -1);
    EXPECT_EQ(r.exif_error, "Not Jpeg File");
    EXPECT_THAT(r.log, HasSubstr("start Marker:0 Not Jpeg File\n"));
    EXPECT_THAT(read({0xFF}).log, HasSubstr("start Marker:ff Not Jpeg File\n"));
}

TEST_F(Jpeg, WithoutApp1) {
    for (const Bytes& rest : {Bytes{}, jpeg_end(), jpeg_segment(kApp0, text("JFIF")) + jpeg_end()}) {
        const Read r = read(jpeg_start() + rest);
        EXPECT_EQ(r.exif_result, -1);
        EXPECT_EQ(r.exif_error, kNoApp1);
        EXPECT_EQ(r.xml_result, -1);
        EXPECT_EQ(r.xml_error, kNoApp1);
        // Logged for the block, not for the text.
        const std::string line = std::string("[.jpeg analyze] ") + kNoApp1 + "\n";
        ASSERT_THAT(r.log, HasSubstr(line));
        EXPECT_EQ(r.log.find(line), r.log.rfind(line));
    }
}

TEST_F(Jpeg, XmpBeforeExif) {
    const Read r = read(jpeg_start() + xmp_segment("<xmp>") + exif_segment(block) + jpeg_end());
    EXPECT_EQ(r.exif, block);
    EXPECT_THAT(r.xml, StartsWith("<xmp>"));
}

TEST_F(Jpeg, ThirdApp1OverwritesTheSecond) {
    const Read r = read(jpeg_start() + xmp_segment("<xmp>") + exif_segment(block) + jpeg_segment(kApp1, text("other")) +
                        jpeg_end());
    EXPECT_EQ(r.exif_result, -1);
    EXPECT_FALSE(r.exif_found);
    EXPECT_EQ(r.exif_error, "Exif Not Found");
    EXPECT_THAT(r.log, HasSubstr("[.jpeg analyze] Exif Not Found\n"));
    EXPECT_THAT(r.xml, StartsWith("<xmp>"));
}

TEST_F(Jpeg, XmpNotFoundIsNotLogged) {
    const Read r = read(jpeg_start() + exif_segment(block) + jpeg_segment(kApp1, text("other")) + jpeg_end());
    EXPECT_EQ(r.exif, block);
    EXPECT_EQ(r.xml_result, -1);
    EXPECT_FALSE(r.xml_found);
    EXPECT_EQ(r.xml_error, "XMP Not Found");
    EXPECT_EQ(r.log.find("XMP"), std::string::npos);
}

TEST_F(Jpeg, FileThatEndsBeforeTheScanGivesWhatWasRecorded) {
    EXPECT_EQ(read(jpeg_start() + exif_segment(block)).exif, block);
    EXPECT_EQ(read(jpeg_start() + exif_segment(block) + Bytes{0xFF}).exif, block);
    EXPECT_EQ(read(jpeg_start() + exif_segment(block) + Bytes{0xFF, 0xE1, 0x00}).exif, block);
}

TEST_F(Jpeg, App1BehindTheScanIsNotSeen) {
    EXPECT_EQ(read(jpeg_start() + jpeg_segment(kSos, zeros(6)) + exif_segment(block)).exif_error, kNoApp1);
}

TEST_F(Jpeg, FirstByteOfAMarkerIsNotChecked) {
    EXPECT_EQ(read(jpeg_start() + Bytes{0x00, 0x17} + be16(4) + zeros(2) + exif_segment(block)).exif, block);
}

TEST_F(Jpeg, WalkRecordsPositions) {
    const std::string path = file(jpeg_start() + xmp_segment("<xmp>") + exif_segment(block) + jpeg_end());
    logged([&] {
        _jpeg jpeg(path.c_str(), false);
        EXPECT_EQ(jpeg.app1_first_start, -1);
        EXPECT_EQ(jpeg.app1_second_end, -1);
        EXPECT_EQ(jpeg.get_app1_offset(), 0);
        EXPECT_EQ(jpeg.app1_first_start, 6);
        EXPECT_EQ(jpeg.app1_first_end, 6 + 29 + 5);
        EXPECT_EQ(jpeg.app1_second_start, 44);
        EXPECT_EQ(jpeg.app1_second_end, 44 + 6 + static_cast<int64_t>(block.size()));
        // Once more: the second one is overwritten by the first and then by itself.
        EXPECT_EQ(jpeg.get_app1_offset(), 0);
        EXPECT_EQ(jpeg.app1_second_start, 44);
        EXPECT_EQ(jpeg.get_app1_header(44), 0x66697845);
        EXPECT_EQ(jpeg.get_app1_header(6), 0x70747468);
    });
}

TEST_F(Jpeg, SecondWalkTakesTheOnlyApp1ForTheSecond) {
    const std::string path = file(jpeg_start() + exif_segment(block) + jpeg_end());
    logged([&] {
        _jpeg jpeg(path.c_str(), false);
        EXPECT_EQ(jpeg.get_app1_offset(), 0);
        EXPECT_EQ(jpeg.app1_second_start, -1);
        EXPECT_EQ(jpeg.app1_second_end, -1);
        EXPECT_EQ(jpeg.get_app1_offset(), 0);
        EXPECT_EQ(jpeg.app1_second_start, 6);
        EXPECT_EQ(jpeg.app1_second_end, jpeg.app1_first_end);
    });
}

TEST_F(Jpeg, HeaderWithAHighFourthByteStopsTheSearch) {
    const Read r = read(jpeg_start() + jpeg_segment(kApp1, Bytes{1, 2, 3, 0x80}) + exif_segment(block) + jpeg_end());
    EXPECT_EQ(r.exif_result, static_cast<int>(0x80030201));
    EXPECT_FALSE(r.exif_found);
    EXPECT_EQ(r.xml_result, static_cast<int>(0x80030201));
}

TEST_F(Jpeg, HeaderAtTheEndOfTheFile) {
    const std::string path = file(jpeg_start() + Bytes{0x81, 0x82});
    logged([&] {
        _jpeg jpeg(path.c_str(), false);
        EXPECT_EQ(jpeg.get_app1_header(2), 0x8281);
        EXPECT_EQ(jpeg.get_app1_header(1000), 0);
        EXPECT_EQ(jpeg.get_app1_header(-1), -1);
        EXPECT_EQ(jpeg.error_code, -1);
        EXPECT_STREQ(jpeg.error_text, "Unknown error -1");
    });
}

TEST_F(Jpeg, SegmentLengthBelowTwo) {
    for (const int length : {0, 1}) {
        const Read r =
            read(jpeg_start() + Bytes{0xFF, 0xE1} + be16(static_cast<uint64_t>(length)) + text("Exif") + zeros(40));
        EXPECT_EQ(r.exif_result, -1);
        EXPECT_EQ(r.exif_error, "Exif Not Found");
        EXPECT_EQ(r.xml_error, "XMP Not Found");
    }
}

TEST_F(Jpeg, ExifShorterThanItsSignature) {
    const Bytes short_exif = jpeg_segment(kApp1, text({"Exif\0", 5}));
    EXPECT_EQ(read(jpeg_start() + short_exif + jpeg_end()).exif_error, "Exif Not Found");
    EXPECT_EQ(read(jpeg_start() + short_exif + exif_segment(block) + jpeg_end()).exif, block);
}

TEST_F(Jpeg, ExifWithNothingBehindItsSignature) {
    const Read r = read(jpeg_start() + exif_segment({}) + jpeg_end());
    EXPECT_EQ(r.exif_result, 0);
    EXPECT_TRUE(r.exif_found);
    EXPECT_EQ(r.exif, Bytes{});
}

// Established: it is read like a longer one, from as far behind its start, so from within what follows it.
TEST_F(Jpeg, XmpShorterThanItsSignatureIsReadPastItsEnd) {
    const Bytes short_xmp = jpeg_segment(kApp1, text("http://ns.adobe.com/xap/1.0/"));
    EXPECT_EQ(read(jpeg_start() + short_xmp + jpeg_end()).xml, "\xDA");
    EXPECT_EQ(read(jpeg_start() + short_xmp + jpeg_segment(0xFE, text("<x>"))).xml.substr(0, 1), "\xFE");
}

TEST_F(Jpeg, XmpReads58BytesPastItsSegment) {
    const std::string behind(100, 'b');
    EXPECT_EQ(read(jpeg_start() + xmp_segment("<xmp>") + text(behind)).xml, "<xmp>" + behind.substr(0, 58));
}

TEST_F(Jpeg, XmpAtTheEndOfTheFileIsTerminated) {
    EXPECT_EQ(read(jpeg_start() + xmp_segment("<xmp>")).xml, "<xmp>");
    EXPECT_EQ(read(jpeg_start() + xmp_segment("<xmp>") + text("end")).xml, "<xmp>end");
    EXPECT_EQ(read(jpeg_start() + xmp_segment("")).xml, "");
    EXPECT_TRUE(read(jpeg_start() + xmp_segment("")).xml_found);
}

TEST_F(Jpeg, SegmentsLongerThanTheFile) {
    Bytes cut = jpeg_start() + exif_segment(block);
    cut.resize(cut.size() - 30);
    EXPECT_EQ(read(cut).exif, slice(block, 0, block.size() - 30));
    const Bytes claimed = Bytes{0xFF, 0xE1, 0xFF, 0xFF};
    EXPECT_EQ(read(jpeg_start() + claimed + text("Exif")).exif_result, 0);
    EXPECT_EQ(read(jpeg_start() + claimed + text_with_zero("http://ns.adobe.com/xap/1.0/") + text("<x>")).xml, "<x>");
}

TEST_F(Jpeg, EveryPrefixIsSafe) {
    const Bytes whole = jpeg_start() + xmp_segment("<xmp>") + exif_segment(block) + jpeg_end();
    for (size_t size = 0; size <= whole.size(); ++size) {
        const Read r = read(slice(whole, 0, size));
        EXPECT_EQ(r.exif.size(), size < 50 ? 0 : std::min(size - 50, block.size())) << size;
    }
}

TEST_F(Jpeg, DamagedBytesAreSafe) {
    const Bytes whole = jpeg_start() + xmp_segment("<xmp>") + exif_segment(block) + jpeg_end();
    std::mt19937 random(360);
    for (int i = 0; i < 1000; ++i) {
        Bytes damaged = whole;
        for (int k = 0; k < 3; ++k) {
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        }
        const Read r = read(damaged);
        EXPECT_LE(r.exif.size(), whole.size());
        EXPECT_LE(r.xml.size(), whole.size());
    }
}

TEST_F(Jpeg, MillionsOfSegmentsOfNoLengthEnd) {
    // A hole of zeros: each step goes on by two bytes.
    const std::string path = file(jpeg_start());
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 40), 0);
    const Read r = read_jpeg(path);
    EXPECT_EQ(r.exif_error, kNoApp1);
    EXPECT_EQ(r.xml_error, kNoApp1);
}

TEST_F(Jpeg, ManySegmentsAreWalked) {
    Bytes picture = jpeg_start();
    for (int i = 0; i < 50000; ++i) {
        picture += jpeg_segment(kApp0, {});
    }
    EXPECT_EQ(read(picture + exif_segment(block)).exif, block);
}

TEST_F(Jpeg, ClosedReaderFailsAndKeepsItsBuffers) {
    const std::string path = file(jpeg_start() + exif_segment(block));
    logged([&] {
        _jpeg jpeg(path.c_str(), false);
        uint8_t* out = nullptr;
        ASSERT_EQ(jpeg.exif_data(&out), 0);
        jpeg.close_stream();
        EXPECT_EQ(Bytes(out, out + jpeg.exif_length), block);
        EXPECT_EQ(jpeg.exif_buffer, out);
        char* xmp = nullptr;
        EXPECT_EQ(jpeg.xml_data(&xmp), -1);
        EXPECT_EQ(xmp, nullptr);
        EXPECT_EQ(jpeg.exif_data(&out), -1);
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(jpeg.exif_length, 0u);
        EXPECT_EQ(thrown([&] { jpeg.wtire_xmp_data("x"); }), "Can't write metadata: the file is closed");
    });
}

TEST_F(Jpeg, SecondCallReplacesTheBuffers) {
    const std::string path = file(jpeg_start() + exif_segment(block) + xmp_segment("<xmp>"));
    logged([&] {
        _jpeg jpeg(path.c_str(), false);
        for (int i = 0; i < 2; ++i) {
            uint8_t* exif = nullptr;
            char* xmp = nullptr;
            EXPECT_EQ(jpeg.exif_data(&exif), 0);
            EXPECT_EQ(jpeg.xml_data(&xmp), 0);
            EXPECT_EQ(jpeg.exif_length, block.size());
            EXPECT_STREQ(xmp, "<xmp>");
        }
    });
}

TEST_F(Jpeg, InsertsASegmentAfterTheStartOfImage) {
    const Bytes before = jpeg_start() + exif_segment(block) + xmp_segment("<old>") + jpeg_end();
    const std::string path = file(before);
    const std::string xmp(1000, 'x');
    EXPECT_EQ(write(path, xmp.c_str()), "");
    const Bytes after = read_file(path);
    ASSERT_EQ(after.size(), before.size() + 1035);
    EXPECT_EQ(read_big_endian(after, 2, 2), 0xFFE1u);
    EXPECT_EQ(read_big_endian(after, 4, 2), 1033u);
    EXPECT_EQ(slice(after, 6, 35), text_with_zero("http://ns.adobe.com/xap/1.0/"));
    EXPECT_EQ(slice(after, 35, 1035), text(xmp));
    // Two bytes behind the text belong to the segment.
    EXPECT_EQ(slice(after, 1035, 1037), zeros(2));
    EXPECT_EQ(slice(after, 1037, after.size()), slice(before, 2, before.size()));
    const Read r = read_jpeg(path);
    EXPECT_EQ(r.xml, xmp);
}

TEST_F(Jpeg, InsertsBeforeAFileOfManyBlocks) {
    // Longer than the blocks that move, with a rest, and different everywhere.
    Bytes before = jpeg_start();
    std::mt19937 random(1);
    while (before.size() < (5 << 20) / 2 + 77) {
        before.push_back(static_cast<uint8_t>(random()));
    }
    const std::string path = file(before);
    EXPECT_EQ(write(path, "<xmp>"), "");
    const Bytes after = read_file(path);
    ASSERT_EQ(after.size(), before.size() + 40);
    EXPECT_TRUE(slice(after, 42, after.size()) == slice(before, 2, before.size()));
}

TEST_F(Jpeg, LongestTextFits) {
    const std::string path = file(jpeg_start() + jpeg_end());
    EXPECT_EQ(write(path, std::string(20445, 'x').c_str()), "");
    EXPECT_EQ(read_jpeg(path).xml, std::string(20445, 'x'));
}

TEST_F(Jpeg, LongerTextIsRefused) {
    const Bytes before = jpeg_start() + jpeg_end();
    const std::string path = file(before);
    EXPECT_EQ(write(path, std::string(20446, 'x').c_str()),
              "Can't write metadata: the text has 20446 bytes, 20445 fit");
    EXPECT_EQ(read_file(path), before);
}

TEST_F(Jpeg, NullTextIsRefused) {
    EXPECT_EQ(write(file(jpeg_start()), nullptr), "Can't write metadata: there is no text");
}

TEST_F(Jpeg, NothingIsInsertedIntoAnotherFile) {
    for (const Bytes& other : {Bytes{}, Bytes{0xFF}, Bytes{0x89, 0x50, 0x4E, 0x47}, atom("ftyp", zeros(8))}) {
        const std::string path = file(other);
        EXPECT_EQ(write(path, "<xmp>"), "Can't write metadata: the file is no JPEG");
        EXPECT_EQ(read_file(path), other);
    }
}

TEST_F(Jpeg, FailureOfWritingIsThrown) {
    for (const size_t size : {size_t{100}, size_t{5000}, size_t{3000000}}) {
        const std::string path = file(jpeg_start() + Bytes(size, 'p'));
        FileSizeLimit limit(size + 10);
        EXPECT_EQ(write(path, "<xmp>"), "Can't write metadata: File too large") << size;
    }
}

TEST_F(Jpeg, FailureOfTheLastWriteIsThrown) {
    // Nothing follows that moves: all that is written waits in the stream's buffer.
    const std::string path = file(jpeg_start());
    FileSizeLimit limit(10);
    logged([&] {
        _jpeg jpeg(path.c_str(), true);
        EXPECT_EQ(thrown([&] { jpeg.wtire_xmp_data("<xmp>"); }), "Can't write metadata: File too large");
    });
}

TEST_F(Jpeg, WritingIntoAFileOpenedForReadingIsThrown) {
    const std::string path = file(jpeg_start() + jpeg_end());
    logged([&] {
        _jpeg jpeg(path.c_str(), false);
        EXPECT_EQ(thrown([&] { jpeg.wtire_xmp_data("<xmp>"); }), "Can't write metadata: Bad file descriptor");
        EXPECT_EQ(jpeg.error_code, -1);
        EXPECT_STREQ(jpeg.error_text, "Can't write metadata: Bad file descriptor");
    });
    EXPECT_EQ(read_file(path), jpeg_start() + jpeg_end());
}

TEST_F(Jpeg, InsertsExifAndXmpAfterTheStartOfImage) {
    const Bytes before = jpeg_start() + jpeg_segment(kApp0, text("JFIF")) + jpeg_end();
    const std::string path = file(before);
    const std::string exif = to_string(block);
    logged([&] {
        _jpeg jpeg(path.c_str(), true);
        jpeg.insert_metadata(exif, "<xmp>");
        jpeg.close_stream();
    });
    EXPECT_EQ(read_file(path),
              jpeg_start() + exif_segment(block) + xmp_segment("<xmp>") + slice(before, 2, before.size()));
    EXPECT_EQ(read_jpeg(path).exif, block);
}

TEST_F(Jpeg, MetadataFillsItsSegmentsAndNoMore) {
    const auto insert = [&](const std::string& path, size_t exif, size_t xmp) {
        std::string result;
        logged([&] {
            result = thrown([&] {
                _jpeg jpeg(path.c_str(), true);
                jpeg.insert_metadata(std::string(exif, 'e'), std::string(xmp, 'x'));
                jpeg.close_stream();
            });
        });
        return result;
    };
    const Bytes picture = jpeg_start() + jpeg_end();
    EXPECT_EQ(insert(file(picture), 65527, 65504), "");
    const std::string path = file(picture);
    EXPECT_EQ(insert(path, 65528, 1), "Can't write metadata: the text has 65534 bytes, 65533 fit");
    EXPECT_EQ(insert(path, 1, 65505), "Can't write metadata: the text has 65505 bytes, 65504 fit");
    EXPECT_EQ(read_file(path), picture);
    EXPECT_EQ(insert(file(text("no picture")), 1, 1), "Can't write metadata: the file is no JPEG");
}

TEST_F(Jpeg, ExiftoolReadsThePanorama) {
    const std::string path = real_picture();
    const std::string before = output_of({"ffmpeg", "-v", "error", "-i", path, "-f", "framemd5", "-"});
    const std::unique_ptr<char, void (*)(void*)> xmp(TALUMO360ViewerMetadata(true, 64, 32, "2019:03:04 05:06:07"),
                                                     std::free);
    EXPECT_EQ(write(path, xmp.get()), "");
    const auto tags = nlohmann::json::parse(output_of({"exiftool", "-j", "-n", "-XMP:all", path})).at(0);
    EXPECT_EQ(tags.at("UsePanoramaViewer"), true);
    EXPECT_EQ(tags.at("StitchingSoftware"), "TALUMO360Viewer osx.1.0.0");
    EXPECT_EQ(tags.at("ProjectionType"), "equirectangular");
    EXPECT_EQ(tags.at("PoseHeadingDegrees"), 0);
    EXPECT_EQ(tags.at("CroppedAreaLeftPixels"), 0);
    EXPECT_EQ(tags.at("CroppedAreaTopPixels"), 0);
    EXPECT_EQ(tags.at("CroppedAreaImageWidthPixels"), 64);
    EXPECT_EQ(tags.at("CroppedAreaImageHeightPixels"), 32);
    EXPECT_EQ(tags.at("FullPanoWidthPixels"), 64);
    EXPECT_EQ(tags.at("FullPanoHeightPixels"), 32);
    EXPECT_EQ(tags.at("FirstPhotoDate"), "2019:03:04 05:06:07");
    EXPECT_EQ(tags.at("LastPhotoDate"), "2019:03:04 05:06:07");
    // The picture itself is as before.
    EXPECT_EQ(output_of({"ffmpeg", "-v", "error", "-i", path, "-f", "framemd5", "-"}), before);
    Read r = read_jpeg(path);
    char* software = nullptr;
    char* date = nullptr;
    EXPECT_EQ(isTALUMO360Viewer(r.xml.data(), &software, &date), 0);
    EXPECT_STREQ(software, "TALUMO360Viewer osx.1.0.");
    EXPECT_STREQ(date, "2019:03:04 05:06:07");
    std::free(software);
    std::free(date);
}

TEST_F(Jpeg, ExifOfTheFileAsExiftoolReadsIt) {
    CameraValues values;
    values.orientation = 3;
    const std::string path = real_picture();
    const Bytes picture = read_file(path);
    write_file(path, jpeg_start() + exif_segment(camera_block(MetadataBlock::tiff(), values)) +
                         slice(picture, 2, picture.size()));
    const auto tags = nlohmann::json::parse(output_of({"exiftool", "-j", "-n", path})).at(0);
    const Read r = read_jpeg(path);
    logged([&] {
        const _exif exif(r.exif.data(), r.exif.size());
        EXPECT_EQ(tags.at("Make"), exif.maker);
        EXPECT_EQ(tags.at("Model"), exif.model);
        EXPECT_EQ(tags.at("Orientation"), exif.orientation);
        EXPECT_EQ(tags.at("DateTimeOriginal"), exif.datetime);
    });
}
