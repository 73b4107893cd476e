#include "metadata/movie_index.h"

#include <random>

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/bytes.h"
#include "support/command.h"
#include "support/limits.h"
#include "support/plain_media.h"
#include "support/temp_dir.h"
#include "support/thrown.h"

using namespace test_support;

namespace {

Bytes offsets(const char* type, const std::vector<uint64_t>& values) {
    Bytes table = zeros(4) + be32(values.size());
    for (const uint64_t value : values) {
        table += big_endian(value, std::string(type) == "co64" ? 8 : 4);
    }
    return atom(type, table);
}

Bytes track(const Bytes& table) {
    return atom("trak", atom("mdia", atom("minf", atom("stbl", table))));
}

Bytes narrow_index(const std::vector<uint64_t>& values) {
    return atom("moov", {atom("mvhd", zeros(100)), track(offsets("stco", values))});
}

Bytes wide_index(const std::vector<uint64_t>& values) {
    return atom("moov", {atom("mvhd", zeros(100)), track(offsets("co64", values))});
}

const Bytes kType = atom("ftyp", text("qt  "));
const Bytes kWide = atom("wide", {});
const Bytes kMedia = atom("mdat", text("0123456789"));
const Bytes kFree = atom("free", text("free"));

class Index : public testing::Test {
  protected:
    std::string file(const Bytes& bytes) { return dir.file("movie.mov", bytes); }

    // What is thrown.
    template <typename Change>
    std::string change(const std::string& path, Change apply) {
        std::string text;
        logged([&] {
            text = thrown([&] {
                MovieIndex index(path.c_str());
                apply(index);
                index.close_stream();
            });
        });
        return text;
    }
    std::string move_to_front(const std::string& path) {
        return change(path, [](MovieIndex& index) { index.write_in_front(); });
    }
    std::string grow(const std::string& path, const Bytes& child) {
        return change(path, [&](MovieIndex& index) {
            index.moov.children.push_back(parse_atoms(to_string(child), 0, nullptr).front());
            index.write();
        });
    }

    TempDir dir;
};

}  // namespace

TEST_F(Index, MovesBehindTheFileTypeAndItsChunksFollow) {
    const uint64_t chunk = kType.size() + kWide.size() + 8;
    const Bytes index = narrow_index({chunk, chunk + 4});
    const std::string path = file(kType + kWide + kMedia + index + kFree);
    EXPECT_EQ(move_to_front(path), "");
    const uint64_t by = index.size();
    EXPECT_EQ(read_file(path), kType + narrow_index({chunk + by, chunk + 4 + by}) + kWide + kMedia + kFree);
    // A second time nothing moves.
    const Bytes moved = read_file(path);
    EXPECT_EQ(move_to_front(path), "");
    EXPECT_EQ(read_file(path), moved);
}

TEST_F(Index, MovesToTheBeginningOfAFileWithoutType) {
    const std::string path = file(kMedia + wide_index({8}));
    EXPECT_EQ(move_to_front(path), "");
    EXPECT_EQ(read_file(path), wide_index({8 + wide_index({8}).size()}) + kMedia);
}

TEST_F(Index, ChunksInEveryPlaceFollow) {
    // Media on both sides of the index: what lies between moves by the index, what lies behind stays where it is.
    const uint64_t first = kType.size() + 8;
    const Bytes index = narrow_index({first, 0});
    const uint64_t second = kType.size() + kMedia.size() + index.size() + 8;
    const std::string path = file(kType + kMedia + narrow_index({first, second}) + kMedia);
    EXPECT_EQ(move_to_front(path), "");
    EXPECT_EQ(read_file(path), kType + narrow_index({first + index.size(), second}) + kMedia + kMedia);
}

TEST_F(Index, GrowsInPlaceAndWhatFollowsMovesUp) {
    const Bytes index = narrow_index({0});
    const uint64_t chunk = kType.size() + index.size() + 8;
    const Bytes child = atom("udta", text("user data"));
    const std::string path = file(kType + narrow_index({chunk}) + kMedia);
    EXPECT_EQ(grow(path, child), "");
    const Bytes grown = atom("moov", {atom("mvhd", zeros(100)), track(offsets("stco", {chunk + child.size()})), child});
    EXPECT_EQ(read_file(path), kType + grown + kMedia);
}

TEST_F(Index, GrowsAtTheEndOfTheFile) {
    const Bytes child = atom("udta", text("user data"));
    const uint64_t chunk = kType.size() + 8;
    const std::string path = file(kType + kMedia + narrow_index({chunk}));
    EXPECT_EQ(grow(path, child), "");
    EXPECT_EQ(read_file(path),
              kType + kMedia + atom("moov", {atom("mvhd", zeros(100)), track(offsets("stco", {chunk})), child}));
}

TEST_F(Index, MovesMediaOfManyBlocks) {
    std::mt19937 random(360);
    Bytes samples(size_t{3} << 20);
    for (uint8_t& sample : samples) {
        sample = static_cast<uint8_t>(random());
    }
    const Bytes media = atom("mdat", samples);
    const Bytes index = narrow_index({kType.size() + 8});
    const std::string path = file(kType + media + index + kFree);
    EXPECT_EQ(move_to_front(path), "");
    EXPECT_EQ(read_file(path), kType + narrow_index({kType.size() + 8 + index.size()}) + media + kFree);
}

// The media data lies behind a hole, so that its chunks begin just below 4 GiB.
TEST_F(Index, OffsetsThatCross4GiBBecome64BitsWide) {
    const Bytes child = atom("udta", zeros(1000));
    const uint64_t hole = 0xFFFFFF00 - narrow_index({0, 0}).size() - 8;
    const auto index_with = [&](const Bytes& table) {
        return atom("moov", {atom("mvhd", zeros(100)), track(table), track(offsets("stco", {16}))});
    };
    const uint64_t chunk = hole + index_with(offsets("stco", {0, 0})).size() + 8;
    ASSERT_LT(chunk, uint64_t{0xFFFFFFFF});
    const std::string path = file(be32(hole) + text("free"));
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(hole)), 0);
    {
        std::ofstream end(path, std::ios::binary | std::ios::app);
        end << to_string(index_with(offsets("stco", {chunk, 16})) + kMedia);
    }
    EXPECT_EQ(grow(path, child), "");
    const uint64_t moved = chunk + child.size() + 8;  // eight more for two wider offsets
    const Bytes index = atom(
        "moov", {atom("mvhd", zeros(100)), track(offsets("co64", {moved, 16})), track(offsets("stco", {16})), child});
    std::ifstream file(path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(hole));
    const Bytes behind((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(behind, index + kMedia);
    EXPECT_GT(moved, uint64_t{0xFFFFFFFF});
}

TEST_F(Index, KeepsItsLongHeader) {
    const Bytes content = track(offsets("stco", {kType.size() + 8}));
    const std::string path = file(kType + kMedia + atom64("moov", content));
    EXPECT_EQ(move_to_front(path), "");
    const uint64_t by = atom64("moov", content).size();
    EXPECT_EQ(read_file(path), kType + atom64("moov", track(offsets("stco", {kType.size() + 8 + by}))) + kMedia);
}

TEST_F(Index, RefusesWhatItCannotTell) {
    const Bytes good = narrow_index({kType.size() + 8});
    const Bytes broken_table = atom("stco", zeros(4) + be32(3) + be32(20) + be32(24));
    struct Case {
        Bytes bytes;
        const char* text;
    };
    for (const Case& c :
         {Case{{}, "the movie has no moov atom"}, Case{kType + kMedia, "the movie has no moov atom"},
          Case{kType + kMedia + good + atom("moof", {}), "the movie is in fragments"},
          Case{slice(kType + kMedia + good, 0, 60), "the movie is cut off or broken"},
          Case{kType + kMedia + good + text("abc"), "the movie is cut off or broken"},
          Case{be32(0) + text("mdat") + good, "the movie is cut off or broken"},
          Case{be32(1) + text("mdat") + big_endian(~uint64_t{0}, 8), "the movie is cut off or broken"},
          Case{kMedia + atom("moov", track(broken_table)), "the movie's table of chunks is broken"},
          Case{kMedia + atom("moov", track(atom("co64", zeros(7)))), "the movie's table of chunks is broken"},
          Case{kMedia + atom("moov", track(zeros(7) + text("x"))), "the movie's index is broken"},
          Case{text("no movie at all, but a text"), "the movie is cut off or broken"}}) {
        const std::string path = file(c.bytes);
        EXPECT_EQ(move_to_front(path), std::string("Can't write metadata: ") + c.text);
        EXPECT_EQ(read_file(path), c.bytes);
    }
    EXPECT_EQ(move_to_front(dir.file("missing.mov")), "Can't open file " + dir.file("missing.mov"));
}

TEST_F(Index, IsNotMadeSmaller) {
    const std::string path = file(kType + kMedia + narrow_index({8}));
    EXPECT_EQ(change(path,
                     [](MovieIndex& index) {
                         index.moov.children.pop_back();
                         index.write();
                     }),
              "Can't write metadata: the movie's index has become smaller");
}

TEST_F(Index, AFullDiskIsTold) {
    const std::string path = file(kType + kMedia + narrow_index({kType.size() + 8}));
    const auto size = std::filesystem::file_size(path);
    const FileSizeLimit limit(size + 10);
    EXPECT_EQ(grow(path, atom("udta", zeros(100))), "Can't write metadata: File too large");
}

TEST_F(Index, EveryPrefixAndDamagedByteIsSafe) {
    const Bytes whole = kType + kMedia + narrow_index({kType.size() + 8}) + kFree;
    for (size_t at = 0; at < whole.size(); ++at) {
        const Bytes cut = slice(whole, 0, at);
        move_to_front(file(cut));
        for (const uint8_t value : {0, 1, 0x7F, 0xFF}) {
            Bytes damaged = whole;
            damaged[at] = value;
            const std::string path = file(damaged);
            const std::string error = move_to_front(path);
            EXPECT_EQ(read_file(path).size(), whole.size());
            if (!error.empty()) {
                EXPECT_EQ(read_file(path), damaged);
            }
        }
    }
}

TEST_F(Index, FfprobeReadsTheSamePacketsOfAMovieWithItsIndexInFront) {
    for (const char* name : {"movie.mov", "movie.mp4"}) {
        const std::string path = make_plain_movie(dir.file(name), "aac");
        const auto packets = [&] {
            return output_of({"ffprobe", "-v", "error", "-show_data_hash", "md5", "-show_entries",
                              "packet=stream_index,pts,dts,duration,size,flags,data_hash", "-of", "csv", path});
        };
        const std::string before = packets();
        EXPECT_EQ(move_to_front(path), "");
        EXPECT_EQ(packets(), before);
        const std::string bytes = to_string(read_file(path));
        EXPECT_LT(bytes.find("moov"), bytes.find("mdat"));
    }
}
