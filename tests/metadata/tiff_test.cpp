#include "metadata/tiff.h"

#include <gtest/gtest.h>

#include "support/exif_blocks.h"

using namespace test_support;

namespace {

TiffEntries entries_of(const Bytes& block, uint32_t skipped = 0) {
    const std::string bytes = to_string(block);
    const TiffReader reader(bytes);
    return reader.entries(reader.first_directory() + skipped);
}

// One directory at once behind the header.
Bytes block_of(const std::vector<Bytes>& entries) {
    Bytes block = text({"MM\0*", 4}) + be32(8) + be16(entries.size());
    for (const Bytes& one : entries) {
        block += one;
    }
    return block;
}

}  // namespace

TEST(Tiff, KnowsThreeHeaders) {
    for (const std::string& head :
         {std::string("MM\0*\0\0\1\2", 8), std::string("II*\0\2\1\0\0", 8), std::string("MKRI\x99\x99\0\0\1\2", 10)}) {
        EXPECT_EQ(TiffReader(head).first_directory(), 0x0102u);
        const std::string cut = head.substr(0, head.size() - 1);
        EXPECT_EQ(TiffReader(cut).first_directory(), 0u);
    }
    for (const std::string& head :
         {std::string("MM*\0\0\0\0\x08", 8), std::string("II\0*\x08\0\0\0", 8), std::string()}) {
        EXPECT_EQ(TiffReader(head).first_directory(), 0u);
    }
}

TEST(Tiff, ValuesOfUpToFourBytesStandInTheirEntries) {
    const TiffEntries entries =
        entries_of(block_of({entry(1, kTypeByte, 4, {}), entry(2, kTypeShort, 2, {}), entry(3, kTypeShort, 3, be32(8)),
                             entry(4, kTypeRational, 1, be32(8)), entry(5, kTypeAscii, 2, text_with_zero("N"))}));
    EXPECT_EQ(entries.at(1).at, 10u + 8);
    EXPECT_EQ(entries.at(2).at, 22u + 8);
    EXPECT_EQ(entries.at(3).at, 8u);
    EXPECT_EQ(entries.at(4).at, 8u);
    EXPECT_EQ(entries.at(5).at, 58u + 8);
}

TEST(Tiff, ShortTextsOfTheCameraStandAtAnOffset) {
    EXPECT_EQ(entries_of(block_of({entry(5, kTypeAscii, 2, be32(12))})).at(5).at, 12u);
}

TEST(Tiff, LeavesOutWhatIsNotInsideTheBlock) {
    const Bytes block =
        block_of({entry(1, kTypeAscii, 5, be32(66)), entry(2, kTypeAscii, 5, be32(65)),
                  entry(3, kTypeRational, 0x20000001, be32(0)), entry(4, 0, 1, {}), entry(5, kTypeLong, 0, {})});
    ASSERT_EQ(block.size(), 70u);
    const TiffEntries entries = entries_of(block);
    EXPECT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries.count(2), 1u);
    EXPECT_EQ(entries_of(slice(block, 0, 69)).size(), 0u);
    EXPECT_TRUE(entries_of(block, 61).empty());
    EXPECT_TRUE(entries_of(block, 0xFFFFFFF0).empty());
}

TEST(Tiff, WritesDirectoriesInOrderAndValuesAtEvenOffsets) {
    const std::string block =
        tiff_block({{0x0110, tiff_text("abcd")}, {0x010F, tiff_text("abc")}, {0x0112, tiff_short(1)}},
                   {{0x829A, tiff_rational(1, 250)}}, {});
    const std::string expected =
        to_string(text({"MM\0*", 4}) + be32(8) + be16(4) + entry(0x010F, kTypeAscii, 4, text_with_zero("abc")) +
                  entry(0x0110, kTypeAscii, 5, be32(62)) + entry_short(0x0112, 1) + entry_long(0x8769, 68) + be32(0) +
                  text_with_zero("abcd") + zeros(1) + be16(1) + entry(0x829A, kTypeRational, 1, be32(86)) + be32(0) +
                  be32(1) + be32(250));
    EXPECT_EQ(block, expected);
}

TEST(Tiff, WritesNoPointerToAnEmptyDirectory) {
    EXPECT_EQ(tiff_block({}, {}, {}), to_string(text({"MM\0*", 4}) + be32(8) + be16(0) + be32(0)));
    const std::string place = tiff_block({}, {}, {{0, {TiffType::kByte, {2, 3, 0, 0}}}});
    EXPECT_EQ(TiffReader(place).entries(8).count(0x8825), 1u);
    EXPECT_EQ(TiffReader(place).entries(8).size(), 1u);
}
