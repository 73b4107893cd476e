#include "metadata/exif.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/bytes.h"
#include "support/command.h"
#include "support/temp_dir.h"

using namespace test_support;

namespace {

// An _exif on a copy of exactly the block's bytes, so that a sanitizer sees each read beside them.
struct Parsed {
    explicit Parsed(const Bytes& block, ExifDialect dialect = ExifDialect::kCamera) : copy(new uint8_t[block.size()]) {
        std::copy(block.begin(), block.end(), copy.get());
        log = logged([&] { exif = std::make_unique<_exif>(copy.get(), block.size(), dialect); });
    }
    _exif* operator->() const { return exif.get(); }

    std::unique_ptr<uint8_t[]> copy;
    std::unique_ptr<_exif> exif;
    std::string log;
};

Bytes tiff_block(const std::vector<Bytes>& entries) {
    MetadataBlock block = MetadataBlock::tiff();
    block.set_start(block.put_directory(entries));
    return block.bytes();
}

std::string text_of(const char* text) {
    return text ? text : "(null)";
}

void expect_defaults(const _exif& exif) {
    EXPECT_EQ(exif.maker, nullptr);
    EXPECT_EQ(exif.model, nullptr);
    EXPECT_EQ(exif.orientation, -1);
    EXPECT_EQ(exif.datetime, nullptr);
    EXPECT_EQ(exif.capture_mode, -1);
    EXPECT_EQ(exif.tag_4003, -1);
    EXPECT_EQ(exif.tag_4034, -1);
    EXPECT_EQ(exif.multi_capture, -1);
    EXPECT_EQ(exif.camera_orientation, -1);
    EXPECT_FALSE(exif.is_mkri);
    EXPECT_FALSE(exif.is_tiff);
    EXPECT_FALSE(exif.has_makernote);
    EXPECT_EQ(exif.start, 0);
}

// A little-endian block of one directory, whose values of more than four bytes lie behind it.
Bytes little_endian_block(const std::vector<Bytes>& entries, const Bytes& behind = {}) {
    Bytes block = {0x49, 0x49, 0x2A, 0x00, 8, 0, 0, 0, static_cast<uint8_t>(entries.size()), 0};
    for (const Bytes& one : entries) {
        block += one;
    }
    return block + zeros(4) + behind;
}

Bytes little_endian_entry(uint16_t tag, uint8_t type, uint8_t count, const Bytes& value) {
    Bytes bytes = Bytes{static_cast<uint8_t>(tag), static_cast<uint8_t>(tag >> 8), type, 0, count, 0, 0, 0} + value;
    bytes.resize(12);
    return bytes;
}

_line line_of(const Bytes& entry_bytes, const _line& before = {}) {
    Parsed parsed(tiff_block({entry_bytes}));
    _line line = before;
    EXPECT_EQ(parsed->read_line(parsed->start + 2, &line), 0);
    return line;
}

}  // namespace

TEST(Exif, ReadsTheWholeCameraBlockOfAPicture) {
    CameraValues values;
    values.orientation = 6;
    Parsed exif(camera_block(MetadataBlock::tiff(), values));
    EXPECT_TRUE(exif->is_tiff);
    EXPECT_FALSE(exif->is_mkri);
    EXPECT_STREQ(exif->maker, "MERIDAN OPTICS");
    EXPECT_STREQ(exif->model, "RT-KA500");
    EXPECT_STREQ(exif->datetime, "2019:03:04 05:06:07");
    EXPECT_EQ(exif->orientation, 6);
    EXPECT_EQ(exif->capture_mode, 0x81);
    EXPECT_EQ(exif->multi_capture, 7);
    EXPECT_EQ(exif->camera_orientation, 2);
    EXPECT_TRUE(exif->has_makernote);
    EXPECT_TRUE(exif->isTarget());
    EXPECT_EQ(exif.log, "[exif] TIFF Header\n[exif] start offset:" + std::to_string(exif->start) + "\n");
}

TEST(Exif, ReadsTheWholeCameraBlockOfAMovie) {
    Parsed exif(camera_block(MetadataBlock::maker()));
    EXPECT_TRUE(exif->is_mkri);
    EXPECT_FALSE(exif->is_tiff);
    EXPECT_STREQ(exif->maker, "MERIDAN OPTICS");
    EXPECT_EQ(exif->capture_mode, 0x81);
    EXPECT_TRUE(exif->isTarget());
    EXPECT_EQ(exif.log, "[exif] MKRI Header\n[exif] start offset:" + std::to_string(exif->start) + "\n");
}

TEST(Exif, ReadsTheTwoUnprintedTags) {
    Parsed exif(tiff_block({entry_short(0x4003, 40), entry_short(0x4034, 50)}));
    EXPECT_EQ(exif->tag_4003, 40);
    EXPECT_EQ(exif->tag_4034, 50);
}

TEST(Exif, NullBlockKeepsTheDefaults) {
    std::unique_ptr<_exif> exif;
    EXPECT_EQ(logged([&] { exif = std::make_unique<_exif>(nullptr, 0); }), "[exif] no exif data \n");
    expect_defaults(*exif);
    EXPECT_FALSE(exif->isTarget());
    EXPECT_EQ(exif->data, nullptr);
}

TEST(Exif, LittleEndianHeaderIsNotRecognised) {
    Parsed exif(Bytes{0x49, 0x49, 0x2A, 0x00, 8, 0, 0, 0} + zeros(20));
    EXPECT_EQ(exif.log, "[exif] other Header:2a4949\n[exif] no header\n");
    expect_defaults(*exif.exif);
}

TEST(Exif, HeaderCutOffIsNotRecognised) {
    EXPECT_EQ(Parsed(Bytes{}).log, "[exif] other Header:0\n[exif] no header\n");
    EXPECT_EQ(Parsed(Bytes{0x4D, 0x4D, 0x00}).log, "[exif] other Header:4d4d\n[exif] no header\n");
}

TEST(Exif, DirectoryWithCountZeroOrTopBitReadsNothing) {
    for (const int count : {0, 0x8000, 0xFFFF}) {
        MetadataBlock block = MetadataBlock::tiff();
        block.set_start(block.put(be16(static_cast<uint64_t>(count)) + entry_short(0x0112, 3)));
        EXPECT_EQ(Parsed(block.bytes())->orientation, -1) << count;
    }
}

TEST(Exif, TargetByPrefixOfMakeAndModelAndByCaptureMode) {
    CameraValues values;
    values.maker = "MERIDAN OPTICS CO., LTD.";
    values.model = "RT-KA500 II";
    for (const uint16_t mode : {128, 129, 134}) {
        values.capture_mode = mode;
        EXPECT_TRUE(Parsed(camera_block(MetadataBlock::tiff(), values))->isTarget()) << mode;
    }
    for (const uint16_t mode : {0, 127, 130, 133, 135, 0x8100}) {
        values.capture_mode = mode;
        EXPECT_FALSE(Parsed(camera_block(MetadataBlock::tiff(), values))->isTarget()) << mode;
    }
}

TEST(Exif, NoTargetWithAnotherMakeOrModel) {
    for (const char* maker : {"MERIDAN OPTIC", "MERIDAN OPTICs", "", "Meridan Optics"}) {
        CameraValues values;
        values.maker = maker;
        EXPECT_FALSE(Parsed(camera_block(MetadataBlock::tiff(), values))->isTarget()) << maker;
    }
    for (const char* model : {"RT-KA50", "RT-KA501", ""}) {
        CameraValues values;
        values.model = model;
        EXPECT_FALSE(Parsed(camera_block(MetadataBlock::tiff(), values))->isTarget()) << model;
    }
}

TEST(Exif, TargetComparisonStopsAtTheEndOfAnUnterminatedText) {
    MetadataBlock block = MetadataBlock::tiff();
    const uint32_t maker = block.put(text("MERIDAN OPTICS"));
    const uint32_t model = block.put(text("RT-KA500"));
    block.set_start(block.put_directory({entry(0x010F, kTypeAscii, 14, be32(maker)),
                                         entry(0x0110, kTypeAscii, 3, be32(model)), entry_short(0x3000, 129)}));
    Parsed exif(block.bytes());
    EXPECT_STREQ(exif->maker, "MERIDAN OPTICS");
    EXPECT_STREQ(exif->model, "RT-");
    EXPECT_FALSE(exif->isTarget());
}

TEST(Exif, MakerNoteWithoutItsSignatureIsNotRead) {
    for (const std::string& signature : {std::string("MKC "), std::string("mkc\0", 4), std::string("MKD\0", 4)}) {
        MetadataBlock block = MetadataBlock::tiff();
        const Bytes maker = block.entry_text(0x010F, "MERIDAN OPTICS");
        const Bytes model = block.entry_text(0x0110, "RT-KA500");
        const Bytes note = block.entry_makernote({entry_short(0x3000, 129)}, signature);
        block.set_start(block.put_directory({maker, model, note}));
        Parsed exif(block.bytes());
        EXPECT_EQ(exif->capture_mode, -1);
        EXPECT_FALSE(exif->has_makernote);
        EXPECT_FALSE(exif->isTarget());
    }
}

TEST(Exif, LaterMakerNoteWithoutSignatureClearsTheFlag) {
    MetadataBlock block = MetadataBlock::tiff();
    const Bytes good = block.entry_makernote({entry_short(0x3000, 129)});
    const Bytes bad = block.entry_makernote({entry_short(0x3000, 1)}, "NONE");
    block.set_start(block.put_directory({good, bad}));
    Parsed exif(block.bytes());
    EXPECT_FALSE(exif->has_makernote);
    EXPECT_EQ(exif->capture_mode, 129);
}

TEST(Exif, MultiCaptureIsWidenedWithoutSign) {
    EXPECT_EQ(Parsed(tiff_block({entry_long(0x6300, 0xFFFFFFFF)}))->multi_capture, 4294967295);
}

TEST(Exif, OrientationWithCountThreeKeepsThePreviousValue) {
    // The record keeps what the entry before left in its short value.
    const Bytes three = entry(0x0112, kTypeShort, 3, be16(8));
    EXPECT_EQ(Parsed(tiff_block({entry_short(0x0112, 6), three}))->orientation, 6);
    EXPECT_EQ(Parsed(tiff_block({entry(0x0112, kTypeShort, 2, be16(8))}))->orientation, 8);
}

TEST(Exif, TagsAreTakenInAnyDirectory) {
    EXPECT_EQ(Parsed(tiff_block({entry_short(0x3000, 129)}))->capture_mode, 129);
}

TEST(Exif, TypeOfATagIsNotChecked) {
    // Orientation as LONG: the short value is what the capture mode's entry left.
    Parsed exif(tiff_block({entry_short(0x3000, 5), entry_long(0x0112, 3)}));
    EXPECT_EQ(exif->orientation, 5);
}

TEST(Exif, EachDirectoryStartsWithAZeroedRecord) {
    MetadataBlock block = MetadataBlock::tiff();
    const uint32_t inner = block.put_directory({entry_long(0x0112, 3)});
    block.set_start(block.put_directory({entry_short(0x3000, 5), entry_long(0x8769, inner)}));
    EXPECT_EQ(Parsed(block.bytes())->orientation, 0);
}

TEST(Exif, ShortTextIsFetchedFromTheOffset) {
    MetadataBlock block = MetadataBlock::tiff();
    const Bytes maker = block.entry_text(0x010F, "abc");
    block.set_start(block.put_directory({maker, entry(0x0110, kTypeAscii, 4, text_with_zero("xyz"))}));
    Parsed exif(block.bytes());
    EXPECT_STREQ(exif->maker, "abc");
    // Inline, its characters are an offset far outside the block.
    EXPECT_EQ(exif->model, nullptr);
}

TEST(Exif, TextOutsideTheBlockLeavesTheField) {
    MetadataBlock block = MetadataBlock::tiff();
    const Bytes first = block.entry_text(0x010F, "first");
    const auto size = static_cast<uint32_t>(block.bytes().size() + 2 + 7 * 12 + 4);
    block.set_start(block.put_directory(
        {first, entry(0x010F, kTypeAscii, 1, be32(size)), entry(0x010F, kTypeAscii, 2, be32(size - 1)),
         entry(0x010F, kTypeAscii, 0xFFFFFFFF, be32(8)), entry(0x010F, kTypeAscii, 8, be32(0xFFFFFFFF)),
         entry(0x010F, kTypeAscii, 0xFFFFFFFF, be32(0xFFFFFFFF)),
         entry(0x9003, kTypeAscii, 0x7FFFFFFF, be32(0x7FFFFFFF))}));
    ASSERT_EQ(block.bytes().size(), size);
    Parsed exif(block.bytes());
    EXPECT_STREQ(exif->maker, "first");
    EXPECT_EQ(exif->datetime, nullptr);
}

TEST(Exif, TextUpToTheLastByteIsTaken) {
    Bytes block =
        Bytes{0x4D, 0x4D, 0x00, 0x2A} + be32(8) + be16(1) + entry(0x010F, kTypeAscii, 3, be32(22)) + text("end");
    EXPECT_STREQ(Parsed(block)->maker, "end");
}

TEST(Exif, LastOfARepeatedTextCounts) {
    MetadataBlock block = MetadataBlock::tiff();
    const Bytes first = block.entry_text(0x0110, "first");
    const Bytes second = block.entry_text(0x0110, "the second and longer one");
    block.set_start(block.put_directory({first, second}));
    EXPECT_STREQ(Parsed(block.bytes())->model, "the second and longer one");
}

TEST(Exif, LineValuesByType) {
    EXPECT_EQ(line_of(entry(1, 1, 1, Bytes{0xFE})).byte_value, 0xFE);
    EXPECT_EQ(line_of(entry(1, 2, 9, be32(0x12345678))).ascii_offset, 0x12345678u);
    EXPECT_EQ(line_of(entry(1, 3, 1, be16(0xFFFE))).short_value, 0xFFFE);
    EXPECT_EQ(line_of(entry(1, 3, 2, be16(7) + be16(8))).short_value, 7);
    EXPECT_EQ(line_of(entry(1, 4, 1, be32(0xFFFFFFFE))).long_value, 0xFFFFFFFEu);
    EXPECT_EQ(line_of(entry(1, 7, 9, be32(0x12345678))).undefined_offset, 0x12345678u);
    EXPECT_EQ(line_of(entry(1, 8, 1, be16(0xFFFE))).sshort_value, -2);
    EXPECT_EQ(line_of(entry(1, 9, 1, be32(0xFFFFFFFE))).slong_value, -2);
    const _line line = line_of(entry(0xABCD, 3, 2, be16(7)));
    EXPECT_EQ(line.tag, 0xABCD);
    EXPECT_EQ(line.type, 3);
    EXPECT_EQ(line.count, 2u);
}

TEST(Exif, LineOfAnotherCountOrTypeKeepsItsValues) {
    _line before;
    before.byte_value = 11;
    before.short_value = 12;
    before.long_value = 13;
    before.rational_value = 14;
    before.sshort_value = 15;
    before.slong_value = 16;
    before.ascii_offset = 17;
    before.undefined_offset = 18;
    for (const uint16_t type : {0, 1, 3, 4, 5, 6, 8, 9, 10, 11, 12, 0xFFFF}) {
        const bool counted = type != 0 && type != 6 && type < 11;
        for (const uint32_t count : {0u, counted ? 3u : 1u, 0xFFFFFFFFu}) {
            const _line line = line_of(entry(1, type, count, be32(0x01010101)), before);
            EXPECT_EQ(line.byte_value, 11) << type;
            EXPECT_EQ(line.short_value, 12) << type;
            EXPECT_EQ(line.long_value, 13u) << type;
            EXPECT_EQ(line.rational_value, 14) << type;
            EXPECT_EQ(line.sshort_value, 15) << type;
            EXPECT_EQ(line.slong_value, 16) << type;
            EXPECT_EQ(line.ascii_offset, 17u) << type;
            EXPECT_EQ(line.undefined_offset, 18u) << type;
        }
    }
}

TEST(Exif, RationalsDivideAsFloats) {
    struct Case {
        uint16_t type;
        uint32_t numerator;
        uint32_t denominator;
        float expected;
    };
    for (const Case& c :
         {Case{5, 1, 3, 1.0f / 3.0f}, Case{5, 0xFFFFFFFF, 2, 2147483648.0f}, Case{10, 0xFFFFFFFF, 2, -0.5f},
          Case{5, 1, 0, INFINITY}, Case{10, 0xFFFFFFFF, 0, -INFINITY}}) {
        MetadataBlock block = MetadataBlock::tiff();
        const uint32_t value = block.put(be32(c.numerator) + be32(c.denominator));
        block.set_start(block.put_directory({entry(1, c.type, 1, be32(value))}));
        Parsed exif(block.bytes());
        _line line;
        exif->read_line(exif->start + 2, &line);
        EXPECT_EQ(line.rational_value, c.expected);
    }
}

TEST(Exif, RationalZeroByZeroIsNotANumber) {
    for (const uint16_t type : {5, 10}) {
        MetadataBlock block = MetadataBlock::tiff();
        const uint32_t value = block.put(be64(0));
        block.set_start(block.put_directory({entry(1, type, 1, be32(value))}));
        Parsed exif(block.bytes());
        _line line;
        exif->read_line(exif->start + 2, &line);
        EXPECT_TRUE(std::isnan(line.rational_value));
    }
}

TEST(Exif, RationalOutsideTheBlockIsNotRead) {
    EXPECT_EQ(line_of(entry(1, 5, 1, be32(0xFFFFFFFF))).rational_value, 0);
    EXPECT_EQ(line_of(entry(1, 10, 1, be32(0x7FFFFFFC))).rational_value, 0);
}

TEST(Exif, LineOutsideTheBlockFails) {
    Parsed exif(tiff_block({entry_short(1, 2)}));
    const auto size = static_cast<int>(exif->length);
    _line line;
    line.tag = 99;
    for (const int offset : {size - 11, size, size + 1, INT_MAX, -1, INT_MIN}) {
        EXPECT_EQ(exif->read_line(offset, &line), -1) << offset;
        EXPECT_EQ(line.tag, 99);
    }
    EXPECT_EQ(exif->read_line(size - 12, &line), 0);
}

TEST(Exif, StepsAreSafeOnANullBlock) {
    _exif exif(nullptr, 0);
    _line line;
    EXPECT_EQ(exif.header(), -1);
    EXPECT_EQ(exif.start_offset(), 0);
    EXPECT_EQ(exif.read_block(0), 0);
    EXPECT_EQ(exif.read_line(0, &line), -1);
    EXPECT_EQ(exif.read_makertag(0), -1);
    for (const uint16_t tag : {0x010F, 0x0110, 0x9003, 0x8769, 0x927C}) {
        line.tag = tag;
        EXPECT_EQ(exif.import_line(line), 0);
        line.count = 5;
        EXPECT_EQ(exif.import_line(line), 0);
        line.count = 0;
    }
    EXPECT_EQ(text_of(exif.maker), "");
}

TEST(Exif, OffsetsOutsideTheBlockReadNothing) {
    for (const uint32_t offset : {40u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFAu}) {
        Bytes block =
            tiff_block({entry_long(0x8769, offset), entry(0x927C, 7, 8, be32(offset)), entry_short(0x0112, 3)});
        Parsed pointers(block);
        EXPECT_EQ(pointers->orientation, 3) << offset;
        EXPECT_FALSE(pointers->has_makernote);
        overwrite(block, 4, be32(offset + 60));
        EXPECT_EQ(Parsed(block)->orientation, -1) << offset;
    }
}

TEST(Exif, StartOffsetCutOffReadsNothing) {
    Parsed tiff(Bytes{0x4D, 0x4D, 0x00, 0x2A, 0, 0, 0});
    EXPECT_EQ(tiff.log, "[exif] TIFF Header\n");
    EXPECT_EQ(tiff->start, 0);
    EXPECT_EQ(Parsed(text("MKRI") + zeros(5)).log, "[exif] MKRI Header\n");
}

TEST(Exif, MakerNoteSignatureAtTheVeryEndHasNoDirectory) {
    for (const size_t behind : {0, 1, 2, 3}) {
        const Bytes block = Bytes{0x4D, 0x4D, 0x00, 0x2A} + be32(8) + be16(1) + entry(0x927C, 7, 8, be32(22)) +
                            text({"MKC\0", 4}) + zeros(behind);
        EXPECT_TRUE(Parsed(block)->has_makernote);
    }
}

TEST(Exif, DirectoryThatPointsAtItselfEnds) {
    Bytes block = tiff_block({entry_long(0x8769, 8), entry_long(0x8769, 8), entry_short(0x0112, 6)});
    ASSERT_EQ(read_big_endian(block, 4, 4), 8u);
    EXPECT_EQ(Parsed(block)->orientation, 6);
}

TEST(Exif, DirectoriesThatPointAtEachOtherEnd) {
    MetadataBlock block = MetadataBlock::tiff();
    const uint32_t first = block.put_directory({entry_long(0x8769, 0), entry_short(0x3000, 129)});
    const uint32_t second = block.put_directory({entry_long(0x8769, first), entry_short(0x0112, 6)});
    overwrite(block.bytes(), first + 2, entry_long(0x8769, second));
    block.set_start(first);
    Parsed exif(block.bytes());
    EXPECT_EQ(exif->capture_mode, 129);
    EXPECT_EQ(exif->orientation, 6);
}

TEST(Exif, MakerNoteThatPointsAtItselfEnds) {
    MetadataBlock block = MetadataBlock::tiff();
    const uint32_t note = static_cast<uint32_t>(block.bytes().size());
    const Bytes pointer = entry(0x927C, 7, 8, be32(note));
    const Bytes outer = block.entry_makernote({pointer, pointer, entry_short(0x3000, 128)});
    block.set_start(block.put_directory({outer, entry_short(0x0112, 3)}));
    Parsed exif(block.bytes());
    EXPECT_EQ(exif->capture_mode, 128);
    EXPECT_EQ(exif->orientation, 3);
}

// Without a cycle: each of 1000 pointers leads to a directory of 1000 pointers, five times over.
TEST(Exif, FiveChainedDirectoriesOfAThousandPointersEnd) {
    MetadataBlock block = MetadataBlock::tiff();
    const Bytes maker = block.entry_text(0x010F, "MERIDAN OPTICS");
    uint32_t next = block.put_directory({entry_short(0x3000, 129)});
    for (int level = 0; level < 5; ++level) {
        next = block.put_directory(std::vector<Bytes>(1000, entry_long(0x8769, next)));
    }
    block.set_start(block.put_directory({maker, entry_long(0x8769, next)}));
    Parsed exif(block.bytes());
    EXPECT_STREQ(exif->maker, "MERIDAN OPTICS");
    EXPECT_EQ(exif->capture_mode, 129);
}

// Each directory names the next one twice, with no way back: 2^60 paths.
TEST(Exif, DoublingChainEnds) {
    MetadataBlock block = MetadataBlock::tiff();
    uint32_t next = block.put_directory({entry_short(0x3000, 129)});
    for (int level = 0; level < 60; ++level) {
        next = block.put_directory({entry_long(0x8769, next), entry_long(0x8769, next)});
    }
    block.set_start(next);
    EXPECT_EQ(Parsed(block.bytes())->capture_mode, 129);
}

TEST(Exif, LongChainOfDirectoriesEnds) {
    MetadataBlock block = MetadataBlock::tiff();
    uint32_t next = block.put_directory({entry_short(0x3000, 129)});
    for (int level = 0; level < 100000; ++level) {
        next = block.put_directory({entry_short(0x0112, 3), entry_long(0x8769, next)});
    }
    block.set_start(next);
    Parsed exif(block.bytes());
    EXPECT_EQ(exif->orientation, 3);
    EXPECT_EQ(exif->capture_mode, -1);
}

TEST(Exif, LargeTextRepeatedOverAndOverEnds) {
    MetadataBlock block = MetadataBlock::maker();
    const uint32_t size = 8 << 20;
    const uint32_t long_text = block.put(Bytes(size, 'x'));
    uint32_t next = block.put_directory(std::vector<Bytes>(30000, entry(0x010F, kTypeAscii, size, be32(long_text))));
    next = block.put_directory(std::vector<Bytes>(30000, entry_long(0x8769, next)));
    block.set_start(next);
    Parsed exif(block.bytes());
    EXPECT_EQ(text_of(exif->maker).size(), size);
}

TEST(Exif, ThirtyNestedDirectoriesAreRead) {
    MetadataBlock block = MetadataBlock::tiff();
    uint32_t next = block.put_directory({entry_short(0x0112, 8)});
    for (int level = 0; level < 30; ++level) {
        next = block.put_directory({entry_long(0x8769, next)});
    }
    block.set_start(next);
    EXPECT_EQ(Parsed(block.bytes())->orientation, 8);
}

// One directory fills the block: nothing of a well-formed block is left out, however large.
TEST(Exif, LargeDirectoryIsReadToItsEnd) {
    std::vector<Bytes> entries(32766, entry_short(0x4003, 1));
    entries.push_back(entry_short(0x4003, 2));
    EXPECT_EQ(Parsed(tiff_block(entries))->tag_4003, 2);
}

TEST(Exif, DirectoryCutOffIsReadAsFarAsItGoes) {
    Bytes block = tiff_block({entry_short(0x0112, 3), entry_short(0x3000, 129)});
    block.resize(8 + 2 + 12 + 11);
    Parsed exif(block);
    EXPECT_EQ(exif->orientation, 3);
    EXPECT_EQ(exif->capture_mode, -1);
}

TEST(Exif, EveryPrefixOfABlockIsSafe) {
    for (const Bytes& whole : {camera_block(MetadataBlock::tiff()), camera_block(MetadataBlock::maker())}) {
        for (size_t size = 0; size < whole.size(); ++size) {
            Parsed exif(slice(whole, 0, size));
            // The first directory lies at the end, and the link behind it is not read.
            EXPECT_EQ(exif->isTarget(), size + 4 >= whole.size()) << size;
        }
    }
}

TEST(Exif, EveryDamagedByteOfABlockIsSafe) {
    const Bytes whole = camera_block(MetadataBlock::tiff());
    std::mt19937 random(360);
    for (size_t at = 0; at < whole.size(); ++at) {
        for (const uint8_t value : {uint8_t{0}, uint8_t{0x7F}, uint8_t{0xFF}, static_cast<uint8_t>(random())}) {
            Bytes damaged = whole;
            damaged[at] = value;
            Parsed exif(damaged);
            EXPECT_LT(text_of(exif->maker).size(), whole.size());
        }
    }
}

TEST(Exif, AgreesWithExiftool) {
    CameraValues values;
    values.orientation = 8;
    const Bytes block = camera_block(MetadataBlock::tiff(), values);
    TempDir dir;
    const std::string path = dir.file("camera.jpg", jpeg_start() + exif_segment(block) + jpeg_end());
    const auto theirs = nlohmann::json::parse(output_of({"exiftool", "-j", "-n", path})).at(0);
    Parsed exif(block);
    EXPECT_EQ(theirs.at("Make"), exif->maker);
    EXPECT_EQ(theirs.at("Model"), exif->model);
    EXPECT_EQ(theirs.at("Orientation"), exif->orientation);
    EXPECT_EQ(theirs.at("DateTimeOriginal"), exif->datetime);
}

TEST(Exif, AnyDialectReadsLittleEndianNumbers) {
    const Bytes block = little_endian_block({little_endian_entry(0x010F, kTypeAscii, 6, Bytes{74, 0, 0, 0}),
                                             little_endian_entry(0x0112, kTypeShort, 1, Bytes{6, 0}),
                                             little_endian_entry(0x3000, kTypeShort, 1, Bytes{0x81, 0}),
                                             little_endian_entry(0x6300, kTypeLong, 1, Bytes{4, 3, 2, 1}),
                                             little_endian_entry(0x6301, kTypeByte, 1, Bytes{2})},
                                            text_with_zero("Maker"));
    Parsed exif(block, ExifDialect::kAny);
    EXPECT_EQ(exif.log, "[exif] TIFF Header\n[exif] start offset:8\n");
    EXPECT_TRUE(exif->is_tiff);
    EXPECT_STREQ(exif->maker, "Maker");
    EXPECT_EQ(exif->orientation, 6);
    EXPECT_EQ(exif->capture_mode, 0x81);
    EXPECT_EQ(exif->multi_capture, 0x01020304);
    EXPECT_EQ(exif->camera_orientation, 2);
    expect_defaults(*Parsed(block).exif);
}

TEST(Exif, AnyDialectDividesLittleEndianRationals) {
    const Bytes block = little_endian_block({little_endian_entry(1, kTypeRational, 1, Bytes{26, 0, 0, 0})},
                                            Bytes{3, 0, 0, 0, 4, 0, 0, 0});
    Parsed exif(block, ExifDialect::kAny);
    _line line;
    ASSERT_EQ(exif->read_line(10, &line), 0);
    EXPECT_EQ(line.rational_value, 0.75f);
}

TEST(Exif, AnyDialectKeepsTheRulesOfTheMakerNote) {
    const auto with_note = [](const Bytes& signature) {
        return little_endian_block(
            {little_endian_entry(0x927C, kTypeUndefined, 20, Bytes{26, 0, 0, 0})},
            signature + zeros(2) + Bytes{1, 0} + little_endian_entry(0x3000, kTypeShort, 1, Bytes{0x80, 0}));
    };
    EXPECT_EQ(Parsed(with_note(text({"MKC\0", 4})), ExifDialect::kAny)->capture_mode, 0x80);
    EXPECT_EQ(Parsed(with_note(text("MKD ")), ExifDialect::kAny)->capture_mode, -1);
}

TEST(Exif, AnyDialectTakesShortTextsFromTheirEntries) {
    for (const char* model : {"a", "ab", "abc"}) {
        const Bytes value = text_with_zero(model);
        const Bytes inside = entry(0x0110, kTypeAscii, static_cast<uint32_t>(value.size()), value);
        EXPECT_STREQ(Parsed(tiff_block({inside}), ExifDialect::kAny)->model, model);
    }
    const Bytes little = little_endian_block({little_endian_entry(0x010F, kTypeAscii, 3, text_with_zero("HP"))});
    EXPECT_STREQ(Parsed(little, ExifDialect::kAny)->maker, "HP");
}

TEST(Exif, AnyDialectReadsTheCamerasOwnBlockAsBefore) {
    MetadataBlock short_texts = MetadataBlock::tiff();
    const Bytes maker = short_texts.entry_text(0x010F, "abc");
    short_texts.set_start(short_texts.put_directory({maker}));
    EXPECT_STREQ(Parsed(short_texts.bytes(), ExifDialect::kAny)->maker, "abc");
    for (const Bytes& block : {camera_block(MetadataBlock::tiff()), camera_block(MetadataBlock::maker())}) {
        Parsed exif(block, ExifDialect::kAny);
        EXPECT_TRUE(exif->isTarget());
        EXPECT_EQ(exif.log, Parsed(block).log);
    }
}

TEST(Exif, AnyDialectIsSafeInEveryPrefixAndDamagedByte) {
    const Bytes whole = little_endian_block({little_endian_entry(0x010F, kTypeAscii, 6, Bytes{50, 0, 0, 0}),
                                             little_endian_entry(0x0110, kTypeAscii, 3, text_with_zero("HP")),
                                             little_endian_entry(0x8769, kTypeLong, 1, Bytes{8, 0, 0, 0})},
                                            text_with_zero("Maker"));
    for (size_t at = 0; at < whole.size(); ++at) {
        Parsed(slice(whole, 0, at), ExifDialect::kAny);
        for (const uint8_t value : {0, 1, 0x7F, 0x80, 0xFF}) {
            Bytes damaged = whole;
            damaged[at] = value;
            EXPECT_LT(text_of(Parsed(damaged, ExifDialect::kAny)->maker).size(), whole.size());
        }
    }
}

TEST(Exif, AnyDialectAgreesWithExiftoolInEitherByteOrder) {
    TempDir dir;
    for (const std::string order : {"II", "MM"}) {
        const std::string path = dir.file(order + ".jpg", jpeg_start() + jpeg_end());
        output_of({"exiftool", "-q", "-ExifByteOrder=" + order, "-Make=HP", "-Model=Some camera", "-Orientation#=8",
                   "-DateTimeOriginal=2019:03:04 05:06:07", path});
        const Bytes file = read_file(path);
        const std::string header = order == "II" ? std::string("II*\0", 4) : std::string("MM\0*", 4);
        const size_t start = to_string(file).find(header);
        ASSERT_NE(start, std::string::npos);
        Parsed exif(slice(file, start, file.size()), ExifDialect::kAny);
        EXPECT_STREQ(exif->maker, "HP");
        EXPECT_STREQ(exif->model, "Some camera");
        EXPECT_EQ(exif->orientation, 8);
        EXPECT_STREQ(exif->datetime, "2019:03:04 05:06:07");
    }
}
