#include "metadata/atoms.h"

#include <gtest/gtest.h>

#include "support/bytes.h"

using namespace test_support;

namespace {

const Bytes kDescription = atom("avc1", zeros(78) + atom("avcC", zeros(3)));
const Bytes kTable = atom("stbl", {atom("stsd", zeros(4) + be32(1) + kDescription), atom64("stco", zeros(8))});
const Bytes kTrack = atom("trak", {atom("tkhd", zeros(84)), atom("mdia", atom("minf", kTable))});
const Bytes kUser = atom("udta", atom("name", text("x")) + zeros(4));
const Bytes kIndex = atom("mvhd", zeros(100)) + kTrack + kTrack + kUser;

}  // namespace

TEST(Atoms, AnIndexIsWrittenAsItWasRead) {
    EXPECT_EQ(atom_bytes(parse_index(to_string(kIndex))), to_string(atom("moov", kIndex)));
    Atom large = parse_index(to_string(kIndex));
    large.is_large = true;
    EXPECT_EQ(atom_bytes(large), to_string(atom64("moov", kIndex)));
}

TEST(Atoms, TracksAreTakenApartDownToTheDescriptions) {
    Atom moov = parse_index(to_string(kIndex));
    Atom* descriptions = find_descendant(&moov, {"trak", "mdia", "minf", "stbl", "stsd"});
    ASSERT_TRUE(descriptions);
    ASSERT_EQ(descriptions->children.size(), 1u);
    EXPECT_EQ(atom_bytes(descriptions->children[0]), to_string(kDescription));
    EXPECT_EQ(descriptions->payload.size(), 8u);
    EXPECT_EQ(find_child(&moov, "udta")->rest, std::string(4, '\0'));
    EXPECT_TRUE(find_descendant(&moov, {"trak", "mdia", "minf", "stbl", "stco"})->is_large);
    EXPECT_FALSE(find_descendant(&moov, {"trak", "udta", "name"}));
}

TEST(Atoms, WhatIsNoAtomIsTheRest) {
    const std::string good = to_string(atom("good", text("12")));
    for (const std::string& bad :
         {std::string("\0\0\0\7abcd", 8), std::string("\0\0\0\0abcd", 8),
          std::string("\0\0\0\x09"
                      "abcd",
                      8),
          std::string("\0\0\0\1abcd", 8), std::string("\0\0\0\1abcd\0\0\0\0\0\0\0\x0F", 16),
          std::string("\0\0\0\1abcd\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 16), std::string("abc")}) {
        std::string rest = "before";
        const std::vector<Atom> atoms = parse_atoms(good + bad, 0, &rest);
        EXPECT_EQ(atoms.size(), 1u);
        EXPECT_EQ(rest, bad);
        EXPECT_EQ(parse_atoms(bad + good, bad.size(), nullptr).size(), 1u);
        EXPECT_EQ(atom_bytes(parse_index(good + bad)), to_string(atom("moov", text(good + bad))));
    }
    EXPECT_TRUE(parse_atoms(good, 1000, nullptr).empty());
}

TEST(Atoms, TensOfThousandsSideBySideAreNotAllTakenApart) {
    Bytes many;
    for (int i = 0; i < 20000; ++i) {
        many += atom("free", {});
    }
    const Atom moov = parse_index(to_string(many));
    EXPECT_EQ(moov.children.size(), 10000u);
    EXPECT_EQ(atom_bytes(moov), to_string(atom("moov", many)));
}

TEST(Atoms, ADescriptionsHeadCutOffIsLeftWhole) {
    Atom moov = parse_index(to_string(atom("trak", atom("mdia", atom("minf", atom("stbl", atom("stsd", zeros(7))))))));
    Atom* descriptions = find_descendant(&moov, {"trak", "mdia", "minf", "stbl", "stsd"});
    EXPECT_EQ(descriptions->payload.size(), 7u);
    EXPECT_TRUE(descriptions->children.empty());
}
