#include "metadata/tiff.h"

#include "metadata/big_endian.h"

namespace {

constexpr uint16_t kPhotoPointer = 0x8769;
constexpr uint16_t kPlacePointer = 0x8825;

constexpr uint32_t kHeaderSize = 8;
constexpr uint32_t kEntrySize = 12;
constexpr size_t kInlineSize = 4;

// Values begin at even offsets.
std::string padded(std::string bytes, size_t size) {
    bytes.resize(bytes.size() < size ? size : bytes.size() + bytes.size() % 2, '\0');
    return bytes;
}

// The directory at this offset of the block, and behind it the values that its entries have no room for.
std::string directory_bytes(const TiffDirectory& directory, uint32_t offset) {
    std::string entries = to_big_endian(static_cast<uint32_t>(directory.size()), 2);
    std::string values;
    const uint32_t values_at = offset + 2 + kEntrySize * static_cast<uint32_t>(directory.size()) + 4;
    for (const auto& [tag, value] : directory) {
        const auto size = static_cast<uint32_t>(value.bytes.size());
        entries += to_big_endian(tag, 2) + to_big_endian(static_cast<uint16_t>(value.type), 2) +
                   to_big_endian(size / tiff_type_size(value.type), 4);
        if (size <= kInlineSize) {
            entries += padded(value.bytes, kInlineSize);
        } else {
            entries += to_big_endian(values_at + static_cast<uint32_t>(values.size()), 4);
            values += padded(value.bytes, 0);
        }
    }
    return entries + to_big_endian(0, 4) + values;
}

}  // namespace

uint32_t tiff_type_size(TiffType type) {
    switch (type) {
        case TiffType::kByte:
        case TiffType::kAscii:
        case TiffType::kUndefined:
            return 1;
        case TiffType::kShort:
        case TiffType::kSshort:
            return 2;
        case TiffType::kLong:
        case TiffType::kSlong:
            return 4;
        case TiffType::kRational:
        case TiffType::kSrational:
            return 8;
    }
    return 0;
}

TiffReader::TiffReader(const std::string& block) : block_(block) {
    const std::string head = block.substr(0, 4);
    little_endian_ = head == std::string("II*\0", 4);
    const bool is_camera_block = head == "MKRI";
    const size_t field = is_camera_block ? 6 : 4;
    if ((little_endian_ || is_camera_block || head == std::string("MM\0*", 4)) && holds(field, 4)) {
        first_directory_ = number(field, 4);
    }
}

TiffEntries TiffReader::entries(uint32_t directory) const {
    TiffEntries found;
    const uint32_t count = directory != 0 && holds(directory, 2) ? number(directory, 2) : 0;
    for (uint32_t i = 0; i < count; ++i) {
        const size_t at = size_t{directory} + 2 + size_t{kEntrySize} * i;
        TiffEntry entry;
        if (!holds(at, kEntrySize)) {
            break;
        }
        if (read_entry(at, &entry)) {
            found.emplace(static_cast<uint16_t>(number(at, 2)), entry);
        }
    }
    return found;
}

bool TiffReader::read_entry(size_t at, TiffEntry* entry) const {
    entry->type = static_cast<TiffType>(number(at + 2, 2));
    entry->count = number(at + 4, 4);
    const uint64_t size = uint64_t{tiff_type_size(entry->type)} * entry->count;
    // The supported camera puts short texts at an offset too, which begins with a zero byte.
    const bool is_inside = size <= kInlineSize && (entry->type != TiffType::kAscii || block_[at + 8] != 0);
    entry->at = is_inside ? at + 8 : number(at + 8, 4);
    return size > 0 && holds(entry->at, size);
}

uint32_t TiffReader::number(size_t at, size_t size) const {
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<uint8_t>(block_[at + (little_endian_ ? size - 1 - i : i)]);
    }
    return value;
}

TiffValue tiff_text(const std::string& text) {
    return {TiffType::kAscii, text + '\0'};
}

TiffValue tiff_short(uint16_t value) {
    return {TiffType::kShort, to_big_endian(value, 2)};
}

TiffValue tiff_long(uint32_t value) {
    return {TiffType::kLong, to_big_endian(value, 4)};
}

TiffValue tiff_rational(uint32_t numerator, uint32_t denominator) {
    return {TiffType::kRational, to_big_endian(numerator, 4) + to_big_endian(denominator, 4)};
}

TiffValue tiff_undefined(const std::string& bytes) {
    return {TiffType::kUndefined, bytes};
}

std::string tiff_block(TiffDirectory image, const TiffDirectory& photo, const TiffDirectory& place) {
    std::string behind;
    // Room for the pointers first: the offsets behind depend on it.
    for (const auto& [pointer, directory] : {std::pair(kPhotoPointer, &photo), std::pair(kPlacePointer, &place)}) {
        if (!directory->empty()) {
            image[pointer] = tiff_long(0);
        }
    }
    const auto image_size = static_cast<uint32_t>(directory_bytes(image, kHeaderSize).size());
    for (const auto& [pointer, directory] : {std::pair(kPhotoPointer, &photo), std::pair(kPlacePointer, &place)}) {
        if (!directory->empty()) {
            const uint32_t offset = kHeaderSize + image_size + static_cast<uint32_t>(behind.size());
            image[pointer] = tiff_long(offset);
            behind += directory_bytes(*directory, offset);
        }
    }
    return std::string("MM\0*", 4) + to_big_endian(kHeaderSize, 4) + directory_bytes(image, kHeaderSize) + behind;
}
