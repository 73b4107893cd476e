// Builders of the binary structures that the tests hand to the readers: big-endian numbers, directories of
// metadata, JPEG segments and movie atoms. Nothing is checked, so that broken structures can be built too.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace test_support {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Bytes& operator+=(Bytes& left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// The lowest `size` bytes of a number, highest first.
inline Bytes big_endian(uint64_t value, int size) {
    Bytes bytes;
    for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    }
    return bytes;
}

inline Bytes be16(uint64_t value) {
    return big_endian(value, 2);
}
inline Bytes be32(uint64_t value) {
    return big_endian(value, 4);
}
inline Bytes be64(uint64_t value) {
    return big_endian(value, 8);
}

inline Bytes zeros(size_t size) {
    return Bytes(size, 0);
}

// The characters alone; text_with_zero adds the terminating zero that ASCII values of metadata include.
inline Bytes text(std::string_view characters) {
    return Bytes(characters.begin(), characters.end());
}
inline Bytes text_with_zero(std::string_view characters) {
    return text(characters) + zeros(1);
}

inline std::string to_string(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

inline Bytes slice(const Bytes& bytes, size_t from, size_t to) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to));
}

inline uint64_t read_big_endian(const Bytes& bytes, size_t at, int size) {
    uint64_t value = 0;
    for (int i = 0; i < size; ++i) {
        value = value << 8 | bytes.at(at + static_cast<size_t>(i));
    }
    return value;
}

inline void overwrite(Bytes& bytes, size_t at, const Bytes& with) {
    for (size_t i = 0; i < with.size(); ++i) {
        bytes.at(at + i) = with[i];
    }
}

// ---- Directories of metadata: the block of a JPEG's EXIF segment and of a movie's maker atom ----

constexpr uint16_t kTypeByte = 1;
constexpr uint16_t kTypeAscii = 2;
constexpr uint16_t kTypeShort = 3;
constexpr uint16_t kTypeLong = 4;
constexpr uint16_t kTypeRational = 5;
constexpr uint16_t kTypeUndefined = 7;

// One directory entry of 12 bytes; `value` fills the last four, from the left.
inline Bytes entry(uint16_t tag, uint16_t type, uint32_t count, const Bytes& value) {
    Bytes bytes = be16(tag) + be16(type) + be32(count) + value;
    bytes.resize(12);
    return bytes;
}

inline Bytes entry_byte(uint16_t tag, uint8_t value) {
    return entry(tag, kTypeByte, 1, Bytes{value});
}
inline Bytes entry_short(uint16_t tag, uint16_t value) {
    return entry(tag, kTypeShort, 1, be16(value));
}
inline Bytes entry_long(uint16_t tag, uint32_t value) {
    return entry(tag, kTypeLong, 1, be32(value));
}

// A block that grows at its end: values and directories first, the ones that point at them later.
class MetadataBlock {
  public:
    // The big-endian TIFF header of a JPEG's block.
    static MetadataBlock tiff() { return MetadataBlock(Bytes{0x4D, 0x4D, 0x00, 0x2A} + be32(0), 4); }
    // The camera's own header inside a movie.
    static MetadataBlock maker() { return MetadataBlock(text("MKRI") + zeros(2) + be32(0), 6); }

    // Appends bytes at an even offset and returns that offset.
    uint32_t put(const Bytes& bytes) {
        if (bytes_.size() % 2 != 0) {
            bytes_.push_back(0);
        }
        const auto offset = static_cast<uint32_t>(bytes_.size());
        bytes_ += bytes;
        return offset;
    }

    // An entry whose zero-terminated text is put into the block.
    Bytes entry_text(uint16_t tag, std::string_view characters) {
        const uint32_t offset = put(text_with_zero(characters));
        return entry(tag, kTypeAscii, static_cast<uint32_t>(characters.size() + 1), be32(offset));
    }

    // Appends a directory of these entries without a link to a next one.
    uint32_t put_directory(const std::vector<Bytes>& entries) { return put(directory_bytes(entries)); }

    // Appends the camera's maker note and returns the entry that leads to it.
    Bytes entry_makernote(const std::vector<Bytes>& entries, std::string_view signature = {"MKC\0", 4}) {
        const Bytes note = text(signature) + zeros(2) + directory_bytes(entries);
        const uint32_t offset = put(note);
        return entry(0x927C, kTypeUndefined, static_cast<uint32_t>(note.size()), be32(offset));
    }

    void set_start(uint32_t offset) { overwrite(bytes_, start_field_, be32(offset)); }

    Bytes& bytes() { return bytes_; }

  private:
    MetadataBlock(Bytes header, size_t start_field) : bytes_(std::move(header)), start_field_(start_field) {}

    static Bytes directory_bytes(const std::vector<Bytes>& entries) {
        Bytes directory = be16(entries.size());
        for (const Bytes& one : entries) {
            directory += one;
        }
        return directory + be32(0);
    }

    Bytes bytes_;
    size_t start_field_;
};

// What a file of the camera says about itself.
struct CameraValues {
    std::string maker = "MERIDAN OPTICS";
    std::string model = "RT-KA500";
    std::string datetime = "2019:03:04 05:06:07";
    uint16_t orientation = 1;
    uint16_t capture_mode = 0x81;
    uint32_t multi_capture = 7;
    uint8_t camera_orientation = 2;
};

// A whole, well-formed block with an Exif directory and a maker note, as the camera writes it.
inline Bytes camera_block(MetadataBlock block, const CameraValues& values = {}) {
    const Bytes datetime = block.entry_text(0x9003, values.datetime);
    const Bytes note =
        block.entry_makernote({entry_short(0x3000, values.capture_mode), entry_long(0x6300, values.multi_capture),
                               entry_byte(0x6301, values.camera_orientation)});
    const uint32_t exif = block.put_directory({datetime, note});
    const Bytes maker = block.entry_text(0x010F, values.maker);
    const Bytes model = block.entry_text(0x0110, values.model);
    block.set_start(
        block.put_directory({maker, model, entry_short(0x0112, values.orientation), entry_long(0x8769, exif)}));
    return block.bytes();
}

// ---- JPEG ----

constexpr uint8_t kApp0 = 0xE0;
constexpr uint8_t kApp1 = 0xE1;
constexpr uint8_t kSos = 0xDA;

inline Bytes jpeg_start() {
    return Bytes{0xFF, 0xD8};
}

inline Bytes jpeg_segment(uint8_t marker, const Bytes& payload) {
    return Bytes{0xFF, marker} + be16(payload.size() + 2) + payload;
}

inline Bytes exif_segment(const Bytes& block) {
    return jpeg_segment(kApp1, text({"Exif\0\0", 6}) + block);
}

inline Bytes xmp_segment(std::string_view packet) {
    return jpeg_segment(kApp1, text_with_zero("http://ns.adobe.com/xap/1.0/") + text(packet));
}

// A scan of no pixels and the end marker: enough for whoever reads only what lies before.
inline Bytes jpeg_end() {
    return jpeg_segment(kSos, Bytes{1, 1, 0, 0, 63, 0}) + Bytes{0x12, 0x34, 0x56} + Bytes{0xFF, 0xD9};
}

// ---- Movie atoms ----

inline Bytes join(std::initializer_list<Bytes> parts) {
    Bytes bytes;
    for (const Bytes& part : parts) {
        bytes += part;
    }
    return bytes;
}

inline Bytes atom(std::string_view type, const Bytes& payload) {
    return be32(payload.size() + 8) + text(type) + payload;
}

inline Bytes atom(std::string_view type, std::initializer_list<Bytes> children) {
    return atom(type, join(children));
}

// The same with the 64-bit size field.
inline Bytes atom64(std::string_view type, const Bytes& payload) {
    return be32(1) + text(type) + be64(payload.size() + 16) + payload;
}

}  // namespace test_support
