#include "metadata/big_endian.h"

#include <gtest/gtest.h>

TEST(BigEndian, NumbersHaveTheirHighestByteFirst) {
    EXPECT_EQ(to_big_endian(0x0102030405, 4), "\x02\x03\x04\x05");
    EXPECT_EQ(to_big_endian(static_cast<uint64_t>(-2), 2), "\xFF\xFE");
    EXPECT_EQ(from_big_endian("x\xFF\xFE\x03", 1, 3), 0xFFFE03u);
    EXPECT_EQ(from_big_endian(to_big_endian(0xFEDCBA9876543210, 8), 0, 8), 0xFEDCBA9876543210u);
}
