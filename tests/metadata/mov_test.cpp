#include "metadata/mov.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
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

namespace {

const Bytes kUuid = {0xFF, 0xCC, 0x82, 0x63, 0xF8, 0x55, 0x4A, 0x93, 0x88, 0x14, 0x58, 0x7A, 0x02, 0x52, 0x1F, 0xDD};
constexpr char kBroken[] = "this file broken. not read mov offset.";

// A track header whose number at payload offset 34 tells the kind of track: 0 for video.
Bytes track_header(uint16_t number) {
    return atom("tkhd", zeros(34) + be16(number) + zeros(48));
}

Bytes track(uint16_t number, const Bytes& more = {}) {
    return atom("trak", track_header(number) + more);
}

Bytes spherical(const std::string& rdf) {
    return atom("uuid", kUuid + text(rdf));
}

Bytes with_maker(const Bytes& block) {
    return atom("udta", atom("MKRI", block));
}

Bytes file_head() {
    return atom("ftyp", text("qt  ") + zeros(4)) + atom("mdat", text("media"));
}

// What each reader answers about one file.
struct Read {
    int exif_result = 1;
    int xml_result = 1;
    Bytes exif;
    bool exif_found = false;
    std::string exif_error;
    std::string exif_thrown;
    std::string exif_log;
    std::string xml;
    bool xml_found = false;
    std::string xml_thrown;
    std::string xml_log;
};

Read read_movie(const std::string& path) {
    Read read;
    _mov movie(path.c_str(), false);
    uint8_t* block = nullptr;
    read.exif_log = logged([&] { read.exif_thrown = thrown([&] { read.exif_result = movie.exif_data(&block); }); });
    read.exif_error = movie.error_text;
    read.exif_found = block != nullptr;
    char* rdf = nullptr;
    read.xml_log = logged([&] { read.xml_thrown = thrown([&] { read.xml_result = movie.xml_data(&rdf); }); });
    read.xml_found = rdf != nullptr;
    movie.close_stream();
    // The buffers outlive the stream.
    if (block) {
        read.exif.assign(block, block + movie.exif_length);
    }
    if (rdf) {
        read.xml = rdf;
    }
    return read;
}

class Mov : public testing::Test {
  protected:
    std::string file(const Bytes& bytes) { return dir.file("movie.mov", bytes); }
    Read read(const Bytes& bytes) { return read_movie(file(bytes)); }

    struct Found {
        int result;
        int64_t start;
        int64_t end;
        std::string error;

        bool operator==(const Found& o) const {
            return result == o.result && start == o.start && end == o.end && error == o.error;
        }
        friend std::ostream& operator<<(std::ostream& out, const Found& f) {
            return out << f.result << " from " << f.start << " to " << f.end << " \"" << f.error << '"';
        }
    };

    Found find(const std::string& path, const char* type, int64_t from = 0, int64_t to = 0) {
        _mov movie(path.c_str(), false);
        Found found = {};
        found.result = movie.read_mov(atom_type(type), from, to, &found.start, &found.end);
        found.error = movie.error_text;
        EXPECT_EQ(movie.error_code, found.result);
        return found;
    }
    Found find(const Bytes& bytes, const char* type, int64_t from = 0, int64_t to = 0) {
        return find(file(bytes), type, from, to);
    }

    // Adds a text and returns the text thrown.
    std::string write(const std::string& path, const char* rdf) {
        std::string error;
        logged([&] {
            _mov movie(path.c_str(), true);
            error = thrown([&] {
                movie.wtire_xml_data(rdf);
                movie.close_stream();
            });
        });
        return error;
    }

    // A small movie that other programs read, with a track of sound when asked for.
    std::string real_movie(const std::string& name, bool sound_first) {
        const std::string path = dir.file(name);
        std::vector<std::string> command = {"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=size=64x64:rate=5"};
        if (sound_first) {
            const std::vector<std::string> sound = {"-f", "lavfi", "-i", "sine", "-map", "1:a", "-map", "0:v"};
            command.insert(command.end(), sound.begin(), sound.end());
        }
        const std::vector<std::string> output = {"-t", "1", "-c:v", "mpeg4", "-c:a", "pcm_s16le", path};
        command.insert(command.end(), output.begin(), output.end());
        output_of(command);
        return path;
    }

    TempDir dir;
    const Bytes block = camera_block(MetadataBlock::maker());
    const Found nothing = {0, -1, -1, ""};
    const Found broken = {-1, -1, -1, kBroken};
};

}  // namespace

// ---- Finding an atom ----

TEST_F(Mov, FindsAnAtomAmongSiblings) {
    const Bytes movie = atom("ftyp", zeros(4)) + atom("free", {}) + atom("moov", zeros(10)) + atom("moov", {});
    EXPECT_EQ(find(movie, "moov"), (Found{0, 28, 38, ""}));
    EXPECT_EQ(find(movie, "free"), (Found{0, 20, 20, ""}));
    EXPECT_EQ(find(movie, "moov", 38), (Found{0, 46, 46, ""}));
    EXPECT_EQ(find(movie, "mdat"), nothing);
    EXPECT_EQ(find(movie, "MOOV"), nothing);
}

TEST_F(Mov, LooksOnlyInTheRangeAndOnlyAtChildren) {
    const Bytes movie = atom("free", {}) + atom("moov", atom("trak", {})) + atom("udta", {});
    EXPECT_EQ(find(movie, "trak"), nothing);
    EXPECT_EQ(find(movie, "trak", 16, 24), (Found{0, 24, 24, ""}));
    EXPECT_EQ(find(movie, "udta", 16, 24), nothing);
    EXPECT_EQ(find(movie, "udta", 0, 24), nothing);
    EXPECT_EQ(find(movie, "udta", 24, 25), (Found{0, 32, 32, ""}));
    EXPECT_EQ(find(movie, "udta", 24, 24), nothing);
    EXPECT_EQ(find(movie, "udta", 5000, 0), nothing);
    EXPECT_EQ(find(movie, "udta", INT64_MAX, 0), nothing);
    EXPECT_EQ(find(Bytes{}, "moov"), nothing);
}

TEST_F(Mov, NegativePlaceFails) {
    EXPECT_EQ(find(atom("moov", {}), "moov", -1, 0), (Found{-1, -1, -1, "Unknown error -1"}));
}

TEST_F(Mov, AtomOfSizeZeroBeforeTheWantedOneIsBroken) {
    EXPECT_EQ(find(be32(0) + text("free") + atom("moov", {}), "moov"), broken);
    EXPECT_EQ(find(be32(1) + text("free") + be64(0) + atom("moov", {}), "moov"), broken);
    // Also where only its size is left in the file.
    EXPECT_EQ(find(atom("free", {}) + be32(0), "moov"), broken);
}

TEST_F(Mov, WantedAtomOfSizeZeroIsFoundWithoutAPayload) {
    EXPECT_EQ(find(atom("free", {}) + be32(0) + text("moov") + zeros(8), "moov"), (Found{0, 16, 8, ""}));
}

TEST_F(Mov, AtomShorterThanItsHeaderIsBroken) {
    for (uint32_t size = 2; size < 8; ++size) {
        EXPECT_EQ(find(be32(size) + text("free") + atom("moov", {}), "moov"), broken) << size;
        EXPECT_EQ(find(be32(size) + text("moov") + zeros(8), "moov"), broken) << size;
    }
    for (uint64_t size = 1; size < 16; ++size) {
        EXPECT_EQ(find(be32(1) + text("free") + be64(size) + atom("moov", {}), "moov"), broken) << size;
        EXPECT_EQ(find(be32(1) + text("moov") + be64(size), "moov"), broken) << size;
    }
}

TEST_F(Mov, SizesThatLeadBackwardsAreBroken) {
    for (const uint64_t size : {uint64_t{1} << 63, UINT64_MAX, UINT64_MAX - 15, uint64_t{INT64_MAX} - 7}) {
        EXPECT_EQ(find(atom("free", {}) + be32(1) + text("free") + be64(size), "moov"), broken) << size;
        EXPECT_EQ(find(atom("free", {}) + be32(1) + text("moov") + be64(size), "moov"), broken) << size;
    }
}

TEST_F(Mov, SizesBeyondTheEndOfTheFile) {
    for (const uint64_t size : {uint64_t{1} << 62, uint64_t{INT64_MAX} - 8, uint64_t{1} << 40, uint64_t{100}}) {
        const auto end = static_cast<int64_t>(size) + 8;
        EXPECT_EQ(find(atom("free", {}) + be32(1) + text("free") + be64(size) + atom("moov", {}), "moov"), nothing);
        EXPECT_EQ(find(atom("free", {}) + be32(1) + text("moov") + be64(size), "moov"), (Found{0, 24, end, ""}));
    }
    EXPECT_EQ(find(be32(0xFFFFFFFF) + text("moov"), "moov"), (Found{0, 8, 0xFFFFFFFF, ""}));
}

TEST_F(Mov, LongHeaderOfMoov) {
    const Bytes movie = atom("free", {}) + atom64("moov", with_maker(block));
    EXPECT_EQ(find(movie, "moov"), (Found{0, 8 + 16, static_cast<int64_t>(movie.size()), ""}));
    EXPECT_EQ(read(movie).exif, block);
}

TEST_F(Mov, HeaderCutOffIsNotFound) {
    const Bytes header = be32(1) + text("moov") + be64(16);
    for (size_t size = 0; size < header.size(); ++size) {
        EXPECT_EQ(find(slice(header, 0, size), "moov"), nothing) << size;
    }
    EXPECT_EQ(find(header, "moov"), (Found{0, 16, 16, ""}));
}

TEST_F(Mov, ManyAtomsAreWalked) {
    Bytes movie;
    for (int i = 0; i < 200000; ++i) {
        movie += atom("free", {});
    }
    EXPECT_EQ(find(movie + atom("moov", {}), "moov").start, 1600008);
}

// ---- The track's number ----

TEST_F(Mov, TrackNumber) {
    const std::string path = file(zeros(34) + be16(0x8001) + be16(7) + Bytes{1});
    _mov movie(path.c_str(), false);
    int value = 0;
    EXPECT_EQ(movie.read_tkhd(0, 0, &value), 0x8001);
    EXPECT_EQ(value, 0x8001);
    EXPECT_EQ(movie.read_tkhd(2, 99, &value), 7);
    for (const int64_t cut : {int64_t{4}, int64_t{5}, int64_t{1000}, INT64_MAX}) {
        EXPECT_EQ(movie.read_tkhd(cut, 0, &value), 0);
        EXPECT_EQ(value, -1);
    }
    EXPECT_EQ(movie.read_tkhd(-35, 0, &value), -1);
    EXPECT_EQ(value, -1);
}

// ---- The maker block ----

TEST_F(Mov, HandsOutTheMakerBlock) {
    const Read r = read(file_head() + atom("moov", {track(0), with_maker(block)}));
    EXPECT_EQ(r.exif_result, 0);
    EXPECT_EQ(r.exif, block);
    EXPECT_EQ(r.exif_log, "[.mov .mp4 analyze] exif_data start:\n[.mov .mp4 analyze] exif_data end\n");
    logged([&] { EXPECT_TRUE(_exif(r.exif.data(), r.exif.size()).isTarget()); });
}

TEST_F(Mov, WithoutMoov) {
    const Read r = read(file_head());
    EXPECT_EQ(r.exif_result, -1);
    EXPECT_FALSE(r.exif_found);
    EXPECT_EQ(r.exif_thrown, "");
    EXPECT_EQ(r.exif_error, "Not Found moov atom");
    EXPECT_EQ(r.exif_log,
              "[.mov .mp4 analyze] exif_data start:\n[.mov .mp4 analyze] exif_data error:Not Found moov atom\n");
    EXPECT_EQ(r.xml_result, -1);
    EXPECT_EQ(r.xml_log,
              "[.mov .mp4 analyze] xml_data start\n[.mov .mp4 analyze] xml_data error:Not Found moov atom\n");
}

TEST_F(Mov, WithoutUdta) {
    const Read r = read(file_head() + atom("moov", track(0)) + with_maker(block));
    EXPECT_EQ(r.exif_result, -1);
    EXPECT_EQ(r.exif_error, "Not Found udta atom");
    EXPECT_THAT(r.exif_log, HasSubstr("[.mov .mp4 analyze] exif_data error:Not Found udta atom\n"));
}

TEST_F(Mov, WithoutMkriIsNoError) {
    const Read r = read(file_head() + atom("moov", atom("udta", atom("name", text("x")))));
    EXPECT_EQ(r.exif_result, 0);
    EXPECT_FALSE(r.exif_found);
    EXPECT_EQ(r.exif_error, "Not Found MKRI atom");
    EXPECT_THAT(r.exif_log, HasSubstr("[.mov .mp4 analyze] exif_data error:Not Found MKRI atom\n"));
}

TEST_F(Mov, BrokenFileIsThrown) {
    const Read r = read(be32(0) + text("mdat") + zeros(20));
    EXPECT_EQ(r.exif_thrown, "Unknown error -1");
    EXPECT_EQ(r.exif_error, "Unknown error -1");
    EXPECT_FALSE(r.exif_found);
    EXPECT_THAT(
        r.exif_log,
        HasSubstr("[.mov .mp4 analyze] exif_data error:Not Found moov atom: errnum:-1 errstr Unknown error -1\n"));
    EXPECT_EQ(r.xml_thrown, "Unknown error -1");
    EXPECT_THAT(
        r.xml_log,
        HasSubstr("[.mov .mp4 analyze] xml_data error:Not Found moov atom: errnum:-1 errstr Unknown error -1\n"));
}

TEST_F(Mov, BrokenChildrenOnTheWayToTheMakerBlock) {
    const Read in_moov = read(atom("moov", be32(3) + text("trak")));
    EXPECT_EQ(in_moov.exif_result, -1);
    EXPECT_THAT(in_moov.exif_log,
                HasSubstr("exif_data error:Not Found udta atom: errnum:-1 errstr Unknown error -1\n"));
    // The four zero bytes that may end user data count as an atom of size 0.
    const Read in_udta = read(atom("moov", atom("udta", atom("name", {}) + be32(0))));
    EXPECT_EQ(in_udta.exif_result, -1);
    EXPECT_THAT(in_udta.exif_log,
                HasSubstr("exif_data error:Not Found MKRI atom: errnum:-1 errstr Unknown error -1\n"));
    EXPECT_EQ(in_udta.exif_error, "Unknown error -1");
}

TEST_F(Mov, EmptyMakerBlock) {
    const Read r = read(atom("moov", with_maker({})));
    EXPECT_EQ(r.exif_result, 0);
    EXPECT_TRUE(r.exif_found);
    EXPECT_EQ(r.exif, Bytes{});
}

TEST_F(Mov, MakerBlockOfSizeZeroIsNotFound) {
    const Read r = read(atom("moov", atom("udta", be32(0) + text("MKRI"))));
    EXPECT_EQ(r.exif_result, 0);
    EXPECT_FALSE(r.exif_found);
    EXPECT_EQ(r.exif_error, "Not Found MKRI atom");
}

TEST_F(Mov, MakerBlockCutOffIsHandedOutAsFarAsItGoes) {
    Bytes movie = atom("moov", with_maker(block));
    movie.resize(movie.size() - 30);
    EXPECT_EQ(read(movie).exif, slice(block, 0, block.size() - 30));
}

TEST_F(Mov, MakerBlockThatClaimsTooMuchIsNotFound) {
    for (const uint64_t size : {uint64_t{1} << 62, uint64_t{1} << 32, (uint64_t{16} << 20) + 17}) {
        const Bytes maker = be32(1) + text("MKRI") + be64(size) + block;
        const Read r = read(atom("moov", atom("udta", maker)));
        EXPECT_EQ(r.exif_result, 0) << size;
        EXPECT_FALSE(r.exif_found) << size;
        EXPECT_EQ(r.exif_error, "Not Found MKRI atom");
    }
    const Bytes largest = be32(1) + text("MKRI") + be64((16 << 20) + 16) + block;
    EXPECT_EQ(read(atom("moov", atom("udta", largest))).exif, block);
}

// A hole of 5 GiB costs nothing on the disk and would in memory.
TEST_F(Mov, HugeMakerBlockInASparseFileIsNotFound) {
    const uint64_t size = uint64_t{5} << 30;
    const std::string path = file(be32(1) + text("moov") + be64(size + 48) + be32(1) + text("udta") + be64(size + 32) +
                                  be32(1) + text("MKRI") + be64(size + 16) + text("MKRI"));
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size + 48)), 0);
    const Read r = read_movie(path);
    EXPECT_EQ(r.exif_result, 0);
    EXPECT_FALSE(r.exif_found);
    EXPECT_EQ(r.exif_error, "Not Found MKRI atom");
}

TEST_F(Mov, MediaDataOfMoreThan4GiB) {
    const uint64_t size = uint64_t{5} << 30;
    const std::string path = file(atom("ftyp", zeros(8)) + be32(1) + text("mdat") + be64(size));
    const Bytes moov = atom64("moov", track(0, spherical("<rdf>")) + with_maker(block));
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size + 16)), 0);
    {
        std::ofstream end(path, std::ios::binary | std::ios::app);
        end.write(reinterpret_cast<const char*>(moov.data()), static_cast<std::streamsize>(moov.size()));
    }
    const auto start = static_cast<int64_t>(size + 16);
    EXPECT_EQ(find(path, "moov"), (Found{0, start + 16, start + static_cast<int64_t>(moov.size()), ""}));
    const Read r = read_movie(path);
    EXPECT_EQ(r.exif, block);
    EXPECT_EQ(r.xml, "<rdf>");
}

TEST_F(Mov, AddsTheTextBehindMediaDataOfMoreThan4GiB) {
    const uint64_t size = uint64_t{5} << 30;
    const std::string path = file(be32(1) + text("mdat") + be64(size));
    const Bytes moov = atom("moov", track(0) + with_maker(block));
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size)), 0);
    {
        std::ofstream end(path, std::ios::binary | std::ios::app);
        end.write(reinterpret_cast<const char*>(moov.data()), static_cast<std::streamsize>(moov.size()));
    }
    EXPECT_EQ(write(path, "<rdf>"), "");
    EXPECT_EQ(std::filesystem::file_size(path), size + moov.size() + 29);
    const Read r = read_movie(path);
    EXPECT_EQ(r.exif, block);
    EXPECT_EQ(r.xml, "<rdf>");
}

// ---- The spherical text ----

TEST_F(Mov, HandsOutTheSphericalText) {
    const Read r = read(file_head() + atom("moov", track(0, spherical("<rdf>text</rdf>"))));
    EXPECT_EQ(r.xml_result, 0);
    EXPECT_EQ(r.xml, "<rdf>text</rdf>");
    EXPECT_EQ(r.xml_log, "[.mov .mp4 analyze] xml_data start\n");
}

TEST_F(Mov, SecondTrackIsSearchedWhenTheFirstIsSound) {
    EXPECT_EQ(read(atom("moov", {track(1, spherical("no")), track(0, spherical("yes"))})).xml, "yes");
    EXPECT_EQ(read(atom("moov", {track(0, spherical("yes")), track(0, spherical("no"))})).xml, "yes");
    // The second one whatever its number, and no third.
    EXPECT_EQ(read(atom("moov", {track(1), track(2, spherical("yes")), track(0, spherical("no"))})).xml, "yes");
    // Only the whole number counts.
    EXPECT_EQ(read(atom("moov", {track(0x0100, spherical("no")), track(0, spherical("yes"))})).xml, "yes");
}

TEST_F(Mov, WithoutTrack) {
    for (const Bytes& moov : {atom("moov", with_maker(block)), atom("moov", {track(1), with_maker(block)})}) {
        const Read r = read(moov);
        EXPECT_EQ(r.xml_result, -1);
        EXPECT_THAT(r.xml_log, HasSubstr("[.mov .mp4 analyze] xml_data error:Not Found trak atom\n"));
        // The texts of this operation are not kept.
        EXPECT_EQ(r.exif_error, "");
    }
}

TEST_F(Mov, WithoutTrackHeader) {
    for (const Bytes& moov : {atom("moov", atom("trak", {})), atom("moov", {track(1), atom("trak", spherical("x"))})}) {
        const Read r = read(moov);
        EXPECT_EQ(r.xml_result, -1);
        EXPECT_THAT(r.xml_log, HasSubstr("[.mov .mp4 analyze] xml_data error:Not Found tkhd atom\n"));
    }
}

TEST_F(Mov, BrokenChildrenOnTheWayToTheText) {
    const Bytes bad = be32(3) + text("free");
    const std::string line = "xml_data error:Not Found trak atom: errnum:-1 errstr Unknown error -1\n";
    for (const Bytes& moov : {atom("moov", bad), atom("moov", atom("trak", bad)), atom("moov", {track(1), bad}),
                              atom("moov", {track(1), atom("trak", bad)})}) {
        const Read r = read(moov);
        EXPECT_EQ(r.xml_result, -1);
        EXPECT_EQ(r.xml_thrown, "");
        EXPECT_THAT(r.xml_log, HasSubstr(line));
    }
    const Read in_track = read(atom("moov", track(0, bad)));
    EXPECT_EQ(in_track.xml_result, -1);
    EXPECT_EQ(in_track.xml_log, "[.mov .mp4 analyze] xml_data start\n");
}

TEST_F(Mov, WithoutUuid) {
    const Read r = read(atom("moov", {track(0), track(1, spherical("x"))}));
    EXPECT_EQ(r.xml_result, -1);
    EXPECT_THAT(r.xml_log, HasSubstr("[.mov .mp4 analyze] xml_data error:Not Found uuid atom: errnum:-1 errstr "
                                     "Not Found uuid atom\n"));
}

TEST_F(Mov, AnotherUuidFirst) {
    const Bytes other = slice(kUuid, 0, 15) + Bytes{0xDC};
    const Read r = read(atom("moov", track(0, atom("uuid", other + text("no")) + spherical("yes"))));
    EXPECT_EQ(r.xml_result, -1);
    EXPECT_FALSE(r.xml_found);
    EXPECT_THAT(r.xml_log, HasSubstr("[.mov .mp4 analyze] xml_data error:uuid Not youtube360 UUID\n"));
}

TEST_F(Mov, EmptyTextIsAReadError) {
    const Bytes size_zero = be32(0) + text("uuid") + kUuid + text("x");
    const Bytes too_short = be32(12) + text("uuid") + kUuid + text("x");
    for (const Bytes& uuid : {spherical(""), size_zero, too_short}) {
        const Read r = read(atom("moov", track(0, uuid)));
        EXPECT_EQ(r.xml_result, -1);
        EXPECT_FALSE(r.xml_found);
        EXPECT_THAT(r.xml_log, HasSubstr("[.mov .mp4 analyze] xml_data error:read error\n"));
    }
}

TEST_F(Mov, TextThatClaimsTooMuchIsNotFound) {
    for (const uint64_t size : {uint64_t{1} << 62, uint64_t{1} << 32, (uint64_t{16} << 20) + 17}) {
        const Bytes uuid = be32(1) + text("uuid") + be64(size) + kUuid + text("x");
        const Read r = read(atom("moov", track(0, uuid)));
        EXPECT_EQ(r.xml_result, -1);
        EXPECT_FALSE(r.xml_found);
        EXPECT_THAT(r.xml_log, HasSubstr("Not Found uuid atom"));
    }
}

TEST_F(Mov, TextCutOffIsTerminated) {
    Bytes movie = atom("moov", track(0, spherical("<rdf>text</rdf>")));
    movie.resize(movie.size() - 6);
    EXPECT_EQ(read(movie).xml, "<rdf>text");
}

// ---- Whatever the file ----

TEST_F(Mov, EveryPrefixIsSafe) {
    const Bytes whole = file_head() + atom("moov", {track(0, spherical("<rdf>")), with_maker(block)});
    const std::string path = file(whole);
    for (size_t size = whole.size(); size > 0; --size) {
        const Read r = read_movie(path);
        EXPECT_EQ(r.exif, slice(whole, std::min(size, whole.size() - block.size()), size)) << size;
        ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(size - 1)), 0);
    }
}

TEST_F(Mov, DamagedBytesAreSafe) {
    const Bytes whole = file_head() + atom("moov", {track(0, spherical("<rdf>")), with_maker(block)});
    std::mt19937 random(360);
    for (int i = 0; i < 2000; ++i) {
        Bytes damaged = whole;
        for (int k = 0; k < 3; ++k) {
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        }
        const std::string path = file(damaged);
        const Read r = read_movie(path);
        EXPECT_LE(r.exif.size(), whole.size());
        EXPECT_LE(r.xml.size(), whole.size());
        // Either the text is in and found again, or the file is as it was.
        if (write(path, "<new>").empty()) {
            EXPECT_EQ(read_file(path).size(), whole.size() + 29);
        } else {
            EXPECT_EQ(read_file(path), damaged);
        }
    }
}

TEST_F(Mov, ClosedReaderFailsAndKeepsItsBuffers) {
    const std::string path = file(atom("moov", {track(0), with_maker(block)}));
    logged([&] {
        _mov movie(path.c_str(), false);
        uint8_t* out = nullptr;
        ASSERT_EQ(movie.exif_data(&out), 0);
        movie.close_stream();
        EXPECT_EQ(Bytes(out, out + movie.exif_length), block);
        EXPECT_EQ(thrown([&] { movie.exif_data(&out); }), "Unknown error -1");
        EXPECT_EQ(out, nullptr);
        EXPECT_EQ(movie.exif_length, 0u);
        int value = 0;
        EXPECT_EQ(movie.read_tkhd(0, 0, &value), -1);
        EXPECT_EQ(movie.wtire_atom_size(0, 0, 1), -1);
        EXPECT_EQ(thrown([&] { movie.wtire_xml_data("x"); }), "Can't write metadata: the file is closed");
    });
}

// ---- Locating the video track ----

namespace {

struct Places {
    int result = 1;
    int64_t moov = -7;
    int64_t trak = -7;
    int64_t insert = -7;
    int64_t tail = -7;
};

Places places(const std::string& path) {
    Places p;
    EXPECT_EQ(logged([&] {
                  _mov movie(path.c_str(), false);
                  p.result = movie.read_track(&p.moov, &p.trak, &p.insert, &p.tail);
              }),
              "[.mov .mp4 analyze] xml_data start\n");
    return p;
}

}  // namespace

TEST_F(Mov, LocatesTheVideoTrack) {
    const Bytes head = file_head();
    const auto moov = static_cast<int64_t>(head.size());
    const auto size = static_cast<int64_t>(track(0).size());
    const Places first = places(file(head + atom("moov", {track(0), track(1)}) + atom("free", {})));
    EXPECT_EQ(first.result, 0);
    EXPECT_EQ(first.moov, moov);
    EXPECT_EQ(first.trak, moov + 8);
    EXPECT_EQ(first.insert, moov + 8 + size);
    EXPECT_EQ(first.tail, size + 8);
    const Places second = places(file(head + atom("moov", {track(1), track(0)})));
    EXPECT_EQ(second.result, 0);
    EXPECT_EQ(second.trak, moov + 8 + size);
    EXPECT_EQ(second.insert, moov + 8 + 2 * size);
    EXPECT_EQ(second.tail, 0);
}

TEST_F(Mov, NoVideoTrackAmongTheFirstTwo) {
    for (const Bytes& movie :
         {Bytes{}, file_head(), atom("moov", {}), atom("moov", track(1)), atom("moov", {track(1), track(2), track(0)}),
          atom("moov", atom("trak", {})), be32(3) + text("moov")}) {
        const Places p = places(file(movie));
        EXPECT_EQ(p.result, -1);
        EXPECT_EQ(p.moov, -7);
        EXPECT_EQ(p.tail, -7);
        EXPECT_EQ(write(file(movie), "<rdf>"), "Can't write metadata: the movie has no video track");
        EXPECT_EQ(read_file(file(movie)), movie);
    }
}

TEST_F(Mov, HeaderSizeIsTakenFromTheLength) {
    // A 64-bit size of little is taken for a header of 8 bytes, and one of 4 GiB for one of 16.
    EXPECT_EQ(places(file(atom64("moov", track(0)))).moov, 8);
    const std::string path = file(be32(1) + text("moov") + be64(0x100000000) + track(0));
    EXPECT_EQ(places(path).moov, 0);
}

// ---- Adding the text ----

TEST_F(Mov, AddsTheTextAsTheLastChildOfTheTrack) {
    const std::string rdf(500, 'x');
    const Bytes head = file_head();
    for (const bool sound_first : {false, true}) {
        const Bytes sound = sound_first ? track(1) : Bytes{};
        const Bytes video = track(0, atom("mdia", text("media")));
        const Bytes rest = track(1) + with_maker(block);
        const std::string path = file(head + atom("moov", sound + video + rest) + atom("free", text("end")));
        EXPECT_EQ(write(path, rdf.c_str()), "");
        const Bytes larger = track(0, atom("mdia", text("media")) + atom("uuid", kUuid + text(rdf)));
        ASSERT_EQ(larger.size(), video.size() + 524);
        EXPECT_EQ(read_file(path), head + atom("moov", sound + larger + rest) + atom("free", text("end")));
        EXPECT_EQ(read_movie(path).xml, rdf);
        EXPECT_EQ(read_movie(path).exif, block);
    }
}

TEST_F(Mov, TextIsReadBackThroughTheSameObject) {
    const std::string path = file(file_head() + atom("moov", track(0)));
    logged([&] {
        _mov movie(path.c_str(), true);
        movie.wtire_xml_data("<rdf>");
        // All of it is in the file by now.
        EXPECT_EQ(read_file(path), file_head() + atom("moov", track(0, spherical("<rdf>"))));
        char* rdf = nullptr;
        EXPECT_EQ(movie.xml_data(&rdf), 0);
        EXPECT_STREQ(rdf, "<rdf>");
    });
}

TEST_F(Mov, AddsATextOfAnyLength) {
    for (const size_t size : {size_t{0}, size_t{1}, size_t{10216}, size_t{10300}, size_t{3000000}}) {
        const std::string path = file(file_head() + atom("moov", {track(0), with_maker(block)}));
        const std::string rdf(size, 'x');
        EXPECT_EQ(write(path, rdf.c_str()), "");
        const Read r = read_movie(path);
        EXPECT_TRUE(r.xml == rdf) << size;
        EXPECT_EQ(r.exif, block);
    }
}

TEST_F(Mov, TextTooLongToBeReadBackIsRefused) {
    const Bytes movie = file_head() + atom("moov", track(0));
    const std::string path = file(movie);
    EXPECT_EQ(write(path, std::string((16 << 20) - 15, 'x').c_str()),
              "Can't write metadata: the text has 16777201 bytes, 16777200 fit");
    EXPECT_EQ(read_file(path), movie);
    const std::string longest((16 << 20) - 16, 'x');
    EXPECT_EQ(write(path, longest.c_str()), "");
    EXPECT_TRUE(read_movie(path).xml == longest);
}

TEST_F(Mov, NullTextIsRefused) {
    EXPECT_EQ(write(file(atom("moov", track(0))), nullptr), "Can't write metadata: there is no text");
}

TEST_F(Mov, MovesALongTail) {
    Bytes tail = atom("free", Bytes((5 << 20) / 2, 0));
    std::mt19937 random(2);
    std::generate(tail.begin() + 8, tail.end(), [&] { return static_cast<uint8_t>(random()); });
    const std::string path = file(atom("mdat", {}) + atom("moov", track(0)) + tail);
    EXPECT_EQ(write(path, "<rdf>"), "");
    EXPECT_TRUE(read_file(path) == atom("mdat", {}) + atom("moov", track(0, spherical("<rdf>"))) + tail);
}

TEST_F(Mov, MediaDataBehindMoovIsRefused) {
    const Bytes moov = atom("moov", track(0));
    for (const Bytes& behind : {atom("mdat", text("m")), atom("free", {}) + atom("mdat", {}), atom64("mdat", {}),
                                be32(0) + text("mdat") + text("m"), atom("moof", {})}) {
        const Bytes movie = file_head() + moov + behind;
        const std::string path = file(movie);
        EXPECT_EQ(write(path, "<rdf>"), "Can't write metadata: media data follows the moov atom");
        EXPECT_EQ(read_file(path), movie);
    }
}

TEST_F(Mov, SizesThatCannotGrowAreRefused) {
    const Bytes small = atom("trak", track_header(0));
    const Bytes long_moov = atom64("moov", small);
    const Bytes long_trak = atom("moov", atom64("trak", track_header(0)));
    const Bytes size_zero = be32(0) + text("moov") + small;
    for (const Bytes& movie : {long_moov, long_trak, size_zero}) {
        const std::string path = file(movie);
        EXPECT_THAT(write(path, "<rdf>"), HasSubstr(" atom cannot grow"));
        EXPECT_EQ(read_file(path), movie);
    }
    // Room for 28 bytes more in the 32-bit size, and the new atom has 29.
    const std::string path = file(be32(0xFFFFFFFF - 28) + text("moov") + small);
    ASSERT_EQ(truncate(path.c_str(), off_t{0xFFFFFFFF} - 28), 0);
    EXPECT_EQ(write(path, "<rdf>"), "Can't write metadata: the size of the moov atom cannot grow");
}

TEST_F(Mov, MovieCutOffIsRefused) {
    Bytes cut = atom("moov", {track(0), with_maker(block)});
    cut.resize(cut.size() - 1);
    const Bytes trak_too_long = atom("moov", be32(200) + text("trak") + track_header(0)) + zeros(200);
    for (const Bytes& movie : {cut, trak_too_long}) {
        const std::string path = file(movie);
        EXPECT_EQ(write(path, "<rdf>"), "Can't write metadata: the movie is cut off");
        EXPECT_EQ(read_file(path), movie);
    }
}

TEST_F(Mov, FailureOfWritingIsThrown) {
    for (const size_t size : {size_t{100}, size_t{5000}, size_t{3000000}}) {
        const Bytes movie = file_head() + atom("moov", track(0)) + atom("free", Bytes(size, 'f'));
        const std::string path = file(movie);
        FileSizeLimit limit(movie.size() + 10);
        EXPECT_EQ(write(path, "<rdf>"), "Can't write metadata: File too large") << size;
    }
}

TEST_F(Mov, FailureOfTheLastWriteIsThrown) {
    // Nothing follows that moves: the new atom waits in the stream's buffer until a size is looked at.
    const Bytes bytes = file_head() + atom("moov", track(0));
    const std::string path = file(bytes);
    FileSizeLimit limit(bytes.size() + 10);
    logged([&] {
        _mov movie(path.c_str(), true);
        EXPECT_EQ(thrown([&] { movie.wtire_xml_data("<rdf>"); }), "Can't write metadata: File too large");
    });
}

TEST_F(Mov, WritingIntoAFileOpenedForReadingIsThrown) {
    const Bytes bytes = atom("moov", track(0));
    const std::string path = file(bytes);
    logged([&] {
        _mov movie(path.c_str(), false);
        EXPECT_EQ(thrown([&] { movie.wtire_xml_data("<rdf>"); }), "Can't write metadata: Bad file descriptor");
        EXPECT_EQ(movie.wtire_atom_size(0, 0, 1), -1);
    });
    EXPECT_EQ(read_file(path), bytes);
}

// ---- Enlarging a size ----

TEST_F(Mov, EnlargesASize) {
    struct Case {
        Bytes before;
        uint32_t delta;
        Bytes after;
    };
    const Bytes eight = text("12345678");
    for (const Case& c : {
             Case{be32(100) + text("moov") + eight, 524, be32(624) + text("moov") + eight},
             Case{be32(0xFFFFFFF0) + text("moov") + eight, 15, be32(0xFFFFFFFF) + text("moov") + eight},
             // Over what follows a 32-bit header.
             Case{be32(0xFFFFFFF0) + text("moov") + eight, 16, be32(0xFFFFFFF0) + text("moov") + be64(0x100000000)},
             Case{be32(1) + text("moov") + be64(0x1FFFFFFFF), 1, be32(1) + text("moov") + be64(0x200000000)},
             Case{be32(1) + text("moov") + be64(0xFFFFFFFF), 1, be32(1) + text("moov") + be64(0x100000000)},
             // Over the 1 that announces the 64-bit size.
             Case{be32(1) + text("moov") + be64(100), 24, be32(124) + text("moov") + be64(100)},
         }) {
        const std::string path = file(zeros(3) + c.before);
        _mov movie(path.c_str(), true);
        EXPECT_EQ(movie.wtire_atom_size(99, 3, c.delta), 0);
        movie.close_stream();
        EXPECT_EQ(read_file(path), zeros(3) + c.after);
    }
}

TEST_F(Mov, SizeThatCannotBeReadIsNotEnlarged) {
    for (const Bytes& bytes : {Bytes{}, Bytes{0, 0, 1}, be32(1) + text("moov") + be32(0) + Bytes{0, 0, 0}}) {
        const std::string path = file(bytes);
        _mov movie(path.c_str(), true);
        EXPECT_EQ(movie.wtire_atom_size(0, 0, 1), -1);
        EXPECT_EQ(movie.wtire_atom_size(0, -1, 1), -1);
        movie.close_stream();
        EXPECT_EQ(read_file(path), bytes);
    }
}

// ---- As other programs see it ----

TEST_F(Mov, ExiftoolReadsTheSphericalTags) {
    // exiftool takes the time stamp for seconds since 1970 and shows a date.
    const std::unique_ptr<char, void (*)(void*)> rdf(TALUMO360ViewerMetadata(false, 64, 64, "1551675967"), std::free);
    for (const bool sound_first : {false, true}) {
        for (const char* name : {"real.mov", "real.mp4"}) {
            if (sound_first && std::string(name) == "real.mp4") {
                continue;  // no PCM sound in MP4 with every ffmpeg
            }
            std::filesystem::remove(dir.file(name));
            const std::string path = real_movie(name, sound_first);
            const std::vector<std::string> frames = {"ffmpeg", "-v", "error", "-i", path, "-f", "framemd5", "-"};
            const std::string before = output_of(frames);
            EXPECT_EQ(write(path, rdf.get()), "");
            EXPECT_EQ(output_of(frames), before);
            const auto tags = nlohmann::json::parse(output_of({"exiftool", "-j", "-n", "-XMP-GSpherical:all", path}));
            EXPECT_EQ(tags.at(0).at("Spherical"), true);
            EXPECT_EQ(tags.at(0).at("Stitched"), true);
            EXPECT_EQ(tags.at(0).at("StitchingSoftware"), "TALUMO360Viewer osx.1.0.0");
            EXPECT_EQ(tags.at(0).at("ProjectionType"), "equirectangular");
            EXPECT_EQ(tags.at(0).at("TimeStamp"), "2019:03:04 05:06:07");
            EXPECT_EQ(read_movie(path).xml, rdf.get());
        }
    }
}
