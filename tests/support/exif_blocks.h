// Blocks of metadata with directories of the image, the photograph and the place, in either byte order.
#pragma once

#include <cstdint>
#include <vector>

#include "support/bytes.h"

namespace test_support {

enum class ByteOrder { kBig, kLittle };

// One entry with its values as big-endian bytes in units of `unit` bytes, which a little-endian block turns round.
struct ExifEntry {
    uint16_t tag;
    uint16_t type;
    uint32_t count;
    Bytes values;
    size_t unit = 1;
};

inline ExifEntry exif_text(uint16_t tag, std::string_view characters) {
    const Bytes bytes = text_with_zero(characters);
    return {tag, kTypeAscii, static_cast<uint32_t>(bytes.size()), bytes};
}
inline ExifEntry exif_short(uint16_t tag, uint16_t value) {
    return {tag, kTypeShort, 1, be16(value), 2};
}
inline ExifEntry exif_long(uint16_t tag, uint32_t value) {
    return {tag, kTypeLong, 1, be32(value), 4};
}
inline ExifEntry exif_rationals(uint16_t tag, const std::vector<uint32_t>& numbers, uint16_t type = kTypeRational) {
    Bytes bytes;
    for (const uint32_t number : numbers) {
        bytes += be32(number);
    }
    return {tag, type, static_cast<uint32_t>(numbers.size() / 2), bytes, 4};
}

class ExifBuilder {
  public:
    explicit ExifBuilder(ByteOrder order) : order_(order) {}

    Bytes block(std::vector<ExifEntry> image, const std::vector<ExifEntry>& photo,
                const std::vector<ExifEntry>& place) {
        const Bytes magic = order_ == ByteOrder::kLittle ? text({"II*\0", 4}) : text({"MM\0*", 4});
        bytes_ = magic + zeros(4);
        const uint32_t photo_at = put_directory(photo);
        const uint32_t place_at = put_directory(place);
        image.push_back(exif_long(0x8769, photo_at));
        image.push_back(exif_long(0x8825, place_at));
        const uint32_t image_at = put_directory(image);
        overwrite(bytes_, 4, turned(be32(image_at), 4));
        return bytes_;
    }

  private:
    // Each unit in the block's byte order.
    Bytes turned(const Bytes& bytes, size_t unit) const {
        if (order_ == ByteOrder::kBig) {
            return bytes;
        }
        Bytes turned(bytes.size());
        for (size_t i = 0; i < bytes.size(); ++i) {
            turned[i] = bytes[i - i % unit + unit - 1 - i % unit];
        }
        return turned;
    }

    uint32_t put_directory(const std::vector<ExifEntry>& entries) {
        Bytes directory = turned(be16(entries.size()), 2);
        for (const ExifEntry& one : entries) {
            Bytes value = turned(one.values, one.unit);
            if (value.size() > 4) {
                const auto at = static_cast<uint32_t>(bytes_.size());
                bytes_ += value;
                value = turned(be32(at), 4);
            }
            value.resize(4);
            directory += turned(be16(one.tag), 2) + turned(be16(one.type), 2) + turned(be32(one.count), 4) + value;
        }
        const auto at = static_cast<uint32_t>(bytes_.size());
        bytes_ += directory + zeros(4);
        return at;
    }

    ByteOrder order_;
    Bytes bytes_;
};

}  // namespace test_support
