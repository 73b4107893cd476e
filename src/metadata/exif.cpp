#include "metadata/exif.h"

#include <algorithm>
#include <cstring>

#include "base/log.h"

namespace {

constexpr uint8_t kTiffHeader[] = {0x4D, 0x4D, 0x00, 0x2A};
constexpr uint8_t kLittleEndianHeader[] = {0x49, 0x49, 0x2A, 0x00};
constexpr uint8_t kMakerHeader[] = {'M', 'K', 'R', 'I'};
constexpr uint8_t kMakerNote[] = {'M', 'K', 'C', 0};

constexpr int kEntrySize = 12;

// Offsets of directories are ints.
constexpr size_t kLengthLimit = INT32_MAX;

// The camera nests three deep; a long chain of directories must not use up the stack.
constexpr size_t kDepthLimit = 64;

// A well-formed block is read once. Directories that share their children could be read 10^15 times, so all
// reading together is limited to a few times the block and some room for small ones.
constexpr uint64_t kBudgetPerByte = 4;
constexpr uint64_t kBudgetBase = 16384;

enum Type : uint16_t {
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

enum Tag : uint16_t {
    kMake = 0x010F,
    kModel = 0x0110,
    kOrientation = 0x0112,
    kCaptureMode = 0x3000,
    kTag4003 = 0x4003,
    kTag4034 = 0x4034,
    kMultiCapture = 0x6300,
    kCameraOrientation = 0x6301,
    kExifDirectory = 0x8769,
    kDateTimeOriginal = 0x9003,
    kMakerNoteTag = 0x927C,
};

bool begins_with(const char* text, const char* prefix) {
    return text && std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

}  // namespace

_exif::_exif(const uint8_t* block, size_t block_length, ExifDialect dialect) : dialect_(dialect) {
    if (!block) {
        nq360_log(1, "[exif] no exif data ");
        return;
    }
    data = block;
    length = std::min(block_length, kLengthLimit);
    budget_ = kBudgetBase + kBudgetPerByte * length;
    if (header() != 0) {
        nq360_log(1, "[exif] no header");
        return;
    }
    if (start_offset() == 0) {
        read_block(start);
    }
}

_exif::~_exif() = default;

int _exif::header() {
    uint8_t bytes[4] = {};
    if (data) {
        std::copy_n(data, std::min(length, sizeof bytes), bytes);
    }
    little_endian_ = dialect_ == ExifDialect::kAny && std::memcmp(bytes, kLittleEndianHeader, sizeof bytes) == 0;
    is_tiff = little_endian_ || std::memcmp(bytes, kTiffHeader, sizeof bytes) == 0;
    is_mkri = std::memcmp(bytes, kMakerHeader, sizeof bytes) == 0;
    if (is_tiff) {
        nq360_log(1, "[exif] TIFF Header");
        return 0;
    }
    if (is_mkri) {
        nq360_log(1, "[exif] MKRI Header");
        return 0;
    }
    const uint32_t in_file_order = bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<uint32_t>(bytes[3]) << 24;
    nq360_log(1, "[exif] other Header:%x", in_file_order);
    return -1;
}

int _exif::start_offset() {
    if (is_mkri || is_tiff) {
        const int64_t field = is_mkri ? 6 : 4;
        if (!holds(field, 4)) {
            return -1;
        }
        start = static_cast<int32_t>(read32(field));
    }
    nq360_log(1, "[exif] start offset:%d", start);
    return 0;
}

int _exif::read_block(int offset) {
    if (!holds(offset, 2) || open_directories_.size() >= kDepthLimit || is_open(offset)) {
        return 0;
    }
    // Signed, so that a count with its top bit set reads nothing.
    const int count = static_cast<int16_t>(read16(offset));
    open_directories_.push_back(offset);
    _line entry;
    for (int i = 0; i < count; ++i) {
        const int64_t at = int64_t{offset} + 2 + int64_t{kEntrySize} * i;
        if (!holds(at, kEntrySize) || !spend(kEntrySize)) {
            break;
        }
        read_line(static_cast<int>(at), &entry);
        import_line(entry);
    }
    open_directories_.pop_back();
    return 0;
}

int _exif::read_line(int offset, _line* out) {
    if (!holds(offset, kEntrySize)) {
        return -1;
    }
    out->tag = read16(offset);
    out->type = read16(int64_t{offset} + 2);
    out->count = read32(int64_t{offset} + 4);
    read_value(int64_t{offset} + 8, out);
    return 0;
}

void _exif::read_value(int64_t offset, _line* out) const {
    const uint32_t value = read32(offset);
    const bool single = out->count == 1;
    switch (out->type) {
        case kByte:
            out->byte_value = single ? data[offset] : out->byte_value;
            break;
        case kAscii:
            // An offset also where the text would fit into the entry: so the camera writes it.
            out->ascii_offset = holds_text(offset, out->count) ? static_cast<uint32_t>(offset) : value;
            break;
        case kShort:
            out->short_value = single || out->count == 2 ? read16(offset) : out->short_value;
            break;
        case kLong:
            out->long_value = single ? value : out->long_value;
            break;
        case kRational:
            // 0/0 is everyday in files: it becomes a NaN.
            if (single && holds(value, 8)) {
                out->rational_value =
                    static_cast<float>(read32(value)) / static_cast<float>(read32(int64_t{value} + 4));
            }
            break;
        case kUndefined:
            out->undefined_offset = value;
            break;
        case kSshort:
            out->sshort_value = single ? static_cast<int16_t>(read16(offset)) : out->sshort_value;
            break;
        case kSlong:
            out->slong_value = single ? static_cast<int32_t>(value) : out->slong_value;
            break;
        case kSrational:
            if (single && holds(value, 8)) {
                out->rational_value = static_cast<float>(static_cast<int32_t>(read32(value))) /
                                      static_cast<float>(static_cast<int32_t>(read32(int64_t{value} + 4)));
            }
            break;
        default:
            break;
    }
}

// A tag is taken in whatever directory it stands and whatever its type is; deliberate.
int _exif::import_line(_line entry) {
    switch (entry.tag) {
        case kMake:
            import_text(entry, &maker_text_, &maker);
            break;
        case kModel:
            import_text(entry, &model_text_, &model);
            break;
        case kOrientation:
            orientation = entry.short_value;
            break;
        case kDateTimeOriginal:
            import_text(entry, &datetime_text_, &datetime);
            break;
        case kExifDirectory:
            read_block(static_cast<int>(entry.long_value));
            break;
        case kMakerNoteTag:
            read_makertag(static_cast<int>(entry.undefined_offset));
            break;
        case kCaptureMode:
            capture_mode = entry.short_value;
            break;
        case kTag4003:
            tag_4003 = entry.short_value;
            break;
        case kTag4034:
            tag_4034 = entry.short_value;
            break;
        case kMultiCapture:
            multi_capture = entry.long_value;
            break;
        case kCameraOrientation:
            camera_orientation = entry.byte_value;
            break;
        default:
            break;
    }
    return 0;
}

int _exif::read_makertag(int offset) {
    has_makernote = holds(offset, sizeof kMakerNote) && std::memcmp(data + offset, kMakerNote, sizeof kMakerNote) == 0;
    if (!has_makernote) {
        return -1;
    }
    // In 64 bits: a signature that ends with the last byte an int can count has no directory behind it.
    if (holds(int64_t{offset} + 6, 2)) {
        read_block(offset + 6);
    }
    return 0;
}

bool _exif::isTarget() {
    return begins_with(maker, "MERIDAN OPTICS") && begins_with(model, "RT-KA500") &&
           (capture_mode == 128 || capture_mode == 129 || capture_mode == 134);
}

bool _exif::holds(int64_t offset, uint64_t size) const {
    return offset >= 0 && static_cast<uint64_t>(offset) <= length && size <= length - static_cast<uint64_t>(offset);
}

// Whether the four bytes of an entry's value are a text: the offsets of the camera's begin with a zero byte.
bool _exif::holds_text(int64_t offset, uint32_t count) const {
    if (dialect_ != ExifDialect::kAny || count == 0 || count > 4 || data[offset] == 0) {
        return false;
    }
    const uint8_t* end = std::find(data + offset, data + offset + count, 0);
    return std::all_of(data + offset, end, [](uint8_t byte) { return byte >= ' ' && byte < 0x7F; });
}

bool _exif::is_open(int directory) const {
    return std::find(open_directories_.begin(), open_directories_.end(), directory) != open_directories_.end();
}

bool _exif::spend(uint64_t bytes) {
    if (bytes > budget_) {
        return false;
    }
    budget_ -= bytes;
    return true;
}

uint16_t _exif::read16(int64_t offset) const {
    const uint8_t first = data[offset];
    const uint8_t second = data[offset + 1];
    return static_cast<uint16_t>(little_endian_ ? second << 8 | first : first << 8 | second);
}

uint32_t _exif::read32(int64_t offset) const {
    const uint32_t first = read16(offset);
    const uint32_t second = read16(offset + 2);
    return little_endian_ ? second << 16 | first : first << 16 | second;
}

// Copies a text and terminates it, which the file need not do. One that is not wholly inside the block leaves
// the field as it was.
void _exif::import_text(const _line& entry, std::unique_ptr<char[]>* owner, char** field) {
    if (!holds(entry.ascii_offset, entry.count) || !spend(entry.count)) {
        return;
    }
    auto text = std::make_unique<char[]>(size_t{entry.count} + 1);
    std::copy_n(data + entry.ascii_offset, entry.count, text.get());
    *owner = std::move(text);
    *field = owner->get();
}
