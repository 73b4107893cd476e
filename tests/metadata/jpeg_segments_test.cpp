#include "metadata/jpeg_segments.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/temp_dir.h"

using namespace test_support;

namespace {

Bytes marked(uint8_t marker, const Bytes& payload) {
    return Bytes{0xFF, marker} + be16(payload.size() + 2) + payload;
}

Bytes frame(uint8_t marker, int width, int height, uint8_t bits = 8) {
    return marked(marker, Bytes{bits} + be16(static_cast<uint64_t>(height)) + be16(static_cast<uint64_t>(width)) +
                              Bytes{1, 1, 0x11, 0});
}

const Bytes kStart = {0xFF, 0xD8};
const Bytes kEnd = {0xFF, 0xD9};
const Bytes kScan = marked(0xDA, {1, 1, 0, 0, 63, 0}) + Bytes{0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD0, 0x56};

class JpegSegmentsTest : public testing::Test {
  protected:
    JpegSegments segments_of(const Bytes& bytes) { return read_jpeg_segments(dir.file("picture.jpg", bytes).c_str()); }
    void expect(const Bytes& bytes, int width, int height, bool is_cut_off) {
        const JpegSegments found = segments_of(bytes);
        EXPECT_EQ(found.width, width);
        EXPECT_EQ(found.height, height);
        EXPECT_EQ(found.is_cut_off, is_cut_off);
    }

    TempDir dir;
};

}  // namespace

TEST_F(JpegSegmentsTest, TellTheSizeOfTheUsualKinds) {
    for (const uint8_t kind : {0xC0, 0xC1, 0xC2}) {
        expect(kStart + frame(kind, 3888, 258) + kScan + kEnd, 3888, 258, false);
    }
    for (const uint8_t kind : {0xC3, 0xC5, 0xC9, 0xC4, 0xCC}) {
        expect(kStart + frame(kind, 3888, 258) + kScan + kEnd, 0, 0, false);
    }
    expect(kStart + frame(0xC0, 3888, 258, 12) + kScan + kEnd, 0, 0, false);
    expect(kStart + frame(0xC0, 3888, 0) + kScan + kEnd, 0, 0, false);
}

TEST_F(JpegSegmentsTest, LookPastThePictureInTheMetadata) {
    const Bytes inner = kStart + frame(0xC0, 160, 120) + kScan + kEnd;
    const Bytes whole = kStart + marked(0xE1, inner) + frame(0xC0, 640, 480) + kScan + kEnd;
    expect(whole, 640, 480, false);
    expect(slice(whole, 0, whole.size() - 2), 640, 480, true);
    expect(slice(whole, 0, 6 + inner.size()), 0, 0, true);
}

TEST_F(JpegSegmentsTest, TellOfAnyCut) {
    const Bytes whole = kStart + marked(0xDB, zeros(65)) + frame(0xC0, 640, 480) + kScan + kEnd;
    for (size_t size = 2; size < whole.size(); ++size) {
        EXPECT_TRUE(segments_of(slice(whole, 0, size)).is_cut_off) << size;
    }
    expect(whole, 640, 480, false);
    expect(whole + text("appended by another program"), 640, 480, false);
    expect(slice(whole, 0, whole.size() - 2) + text("appended"), 640, 480, true);
}

TEST_F(JpegSegmentsTest, AreFoundBehindFillingBytesAndMarkersOfTheirOwn) {
    const Bytes fill(5, 0xFF);
    expect(kStart + fill + marked(0xE0, zeros(3)) + Bytes{0xFF, 0xD0} + fill + frame(0xC0, 64, 32) + kScan + kEnd, 64,
           32, false);
    expect(kStart + text("odd bytes") + frame(0xC2, 64, 32) + kScan + kEnd, 64, 32, false);
}

TEST_F(JpegSegmentsTest, OfWhatIsNoJpegTellNothing) {
    expect({}, 0, 0, false);
    expect(text("no picture"), 0, 0, false);
    expect(Bytes{0xFF}, 0, 0, false);
    const JpegSegments found = read_jpeg_segments(dir.file("missing.jpg").c_str());
    EXPECT_EQ(found.width, 0);
    EXPECT_FALSE(found.is_cut_off);
}

TEST_F(JpegSegmentsTest, OfAFileOfNothingButSegmentsOrHolesEnd) {
    Bytes lengthless = kStart;
    for (int i = 0; i < 300000; ++i) {
        lengthless += {0xFF, 0xE0, 0, 0};
    }
    expect(lengthless, 0, 0, true);
    const std::string hole = dir.file("hole.jpg", kStart);
    std::filesystem::resize_file(hole, uintmax_t{1} << 32);
    EXPECT_TRUE(read_jpeg_segments(hole.c_str()).is_cut_off);
}
