// The directories of a TIFF structure, read in either byte order and written in one.
#pragma once

#include <cstdint>
#include <map>
#include <string>

enum class TiffType : uint16_t {
    kByte = 1,
    kAscii = 2,
    kShort = 3,
    kLong = 4,
    kRational = 5,
    kUndefined = 7,
    kSshort = 8,
    kSlong = 9,
    kSrational = 10,
};

// Bytes of one value of the type; 0 for a type that is not known.
uint32_t tiff_type_size(TiffType type);

// An entry whose values lie inside the block.
struct TiffEntry {
    TiffType type;
    uint32_t count;
    size_t at;
};

using TiffEntries = std::map<uint16_t, TiffEntry>;

// Reads a block, which must outlive it, and never beyond its end.
class TiffReader {
  public:
    // By its header: TIFF of either byte order, or the camera's own of a movie.
    explicit TiffReader(const std::string& block);

    // 0 when the header is not known or cut off.
    uint32_t first_directory() const { return first_directory_; }
    // The entries of a directory, as far as the block goes, by their tags; of a tag's entries the first. None at 0.
    TiffEntries entries(uint32_t directory) const;

    // Of up to four bytes, which the block must hold.
    uint32_t number(size_t at, size_t size) const;
    std::string bytes(size_t at, size_t size) const { return block_.substr(at, size); }

  private:
    bool holds(size_t at, uint64_t size) const { return at <= block_.size() && size <= block_.size() - at; }
    bool read_entry(size_t at, TiffEntry* entry) const;

    const std::string& block_;
    bool little_endian_ = false;
    uint32_t first_directory_ = 0;
};

struct TiffValue {
    TiffType type;
    std::string bytes;  // big-endian, whole values

    bool operator==(const TiffValue& other) const { return type == other.type && bytes == other.bytes; }
};

TiffValue tiff_text(const std::string& text);
TiffValue tiff_short(uint16_t value);
TiffValue tiff_long(uint32_t value);
TiffValue tiff_rational(uint32_t numerator, uint32_t denominator);
TiffValue tiff_undefined(const std::string& bytes);

// By tag, in the order that TIFF asks for.
using TiffDirectory = std::map<uint16_t, TiffValue>;

// A whole big-endian block: the first directory and, where they are not empty, those of the photograph and of the
// place, to which it gets pointers.
std::string tiff_block(TiffDirectory image, const TiffDirectory& photo, const TiffDirectory& place);
