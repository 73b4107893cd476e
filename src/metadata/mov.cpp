#include "metadata/mov.h"

#include <algorithm>
#include <cerrno>

#include "base/log.h"

namespace {

constexpr int64_t kShortHeader = 8;
constexpr int64_t kLongHeader = 16;

// A walk goes on by at least eight bytes a step; more atoms than this in a row are no movie's.
constexpr int kAtomLimit = 10000000;

// The number that is 0 in the header of a video track (alternate_group of a track header of version 0).
constexpr int64_t kTrackNumberOffset = 34;

// Spherical Video V1.
constexpr uint8_t kSphericalUuid[16] = {0xFF, 0xCC, 0x82, 0x63, 0xF8, 0x55, 0x4A, 0x93,
                                        0x88, 0x14, 0x58, 0x7A, 0x02, 0x52, 0x1F, 0xDD};
constexpr int64_t kUuidSize = sizeof kSphericalUuid;

// A payload from here on is taken to stand behind a header with a 64-bit size.
constexpr int64_t kLongPayload = 0xFFFFFFF0;

uint32_t big_endian32(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
           static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

uint64_t big_endian64(const uint8_t* bytes) {
    return static_cast<uint64_t>(big_endian32(bytes)) << 32 | big_endian32(bytes + 4);
}

// The lower 32 bits.
std::string to_big_endian32(uint64_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

// Taken from the length and not read from the header; deliberate.
int64_t header_size(int64_t start, int64_t end) {
    return end - start >= kLongPayload ? kLongHeader : kShortHeader;
}

}  // namespace

_mov::_mov(const char* path, bool writable) {
    open(path, writable, "[.mov .mp4 analyze]");
}

_mov::~_mov() = default;

void _mov::close_stream() {
    close();
}

int _mov::read_mov(uint32_t type, int64_t from, int64_t to, int64_t* start, int64_t* end) {
    *start = -1;
    *end = -1;
    error_code = 0;
    // How far one may seek beyond the end differs between file systems, so no seek goes there.
    const int64_t file_end = size();
    int64_t position = std::min(from, file_end);
    if (const int result = seek(position); result != 0) {
        return result;
    }
    for (int i = 0; i < kAtomLimit && position < file_end && (to == 0 || position < to); ++i) {
        Header header;
        if (!read_header(position, &header)) {
            return 0;
        }
        const bool matches = header.type == type;
        const bool too_short = header.atom_size < header.size;
        // The atom looked for may have the size 0: it is found, though nothing is in it. Deliberate.
        if ((too_short && !(matches && header.atom_size == 0)) || header.atom_size > INT64_MAX - position) {
            return fail(-1, "this file broken. not read mov offset.");
        }
        position += header.atom_size;
        if (matches) {
            *start = position - header.atom_size + header.size;
            *end = position;
            return 0;
        }
    }
    return 0;
}

// False when the file ends before the size is known. A type that is cut off counts as zeros.
bool _mov::read_header(int64_t position, Header* header) {
    uint8_t bytes[kLongHeader] = {};
    if (seek(position) != 0 || !read(bytes, 4)) {
        return false;
    }
    read_some(bytes + 4, 4);
    std::memcpy(&header->type, bytes + 4, sizeof header->type);
    header->size = kShortHeader;
    header->atom_size = big_endian32(bytes);
    if (header->atom_size == 1) {
        if (!read(bytes + kShortHeader, kLongHeader - kShortHeader)) {
            return false;
        }
        header->size = kLongHeader;
        header->atom_size = static_cast<int64_t>(big_endian64(bytes + kShortHeader));
    }
    return true;
}

int _mov::read_tkhd(int64_t payload, int64_t /*extra*/, int* value) {
    *value = -1;
    if (payload > INT64_MAX - kTrackNumberOffset) {
        return 0;
    }
    if (const int result = seek(payload + kTrackNumberOffset); result != 0) {
        return result;
    }
    uint8_t bytes[2];
    if (!read(bytes, sizeof bytes)) {
        return 0;
    }
    *value = bytes[0] << 8 | bytes[1];
    return *value;
}

_mov::Atom _mov::find(const char* type, int64_t from, int64_t to) {
    Atom atom;
    atom.result = read_mov(atom_type(type), from, to, &atom.start, &atom.end);
    return atom;
}

// -1 when the track has no readable header.
int _mov::track_number(const Atom& track) {
    int number = -1;
    const Atom header = find_in("tkhd", track);
    if (header.found()) {
        read_tkhd(header.start, 0, &number);
    }
    return number;
}

int _mov::exif_data(uint8_t** out) {
    nq360_log(1, "[.mov .mp4 analyze] exif_data start:");
    *out = nullptr;
    exif_length = 0;
    const Atom moov = find("moov", 0, 0);
    if (!moov.found()) {
        exif_missing("moov", moov, -1);
        if (moov.result != 0) {
            throw_text("%s", error_text);
        }
        return error_code;
    }
    const Atom udta = find_in("udta", moov);
    if (!udta.found()) {
        return exif_missing("udta", udta, -1);
    }
    const Atom maker = find_in("MKRI", udta);
    if (!maker.found() || maker.end < maker.start || maker.end - maker.start > kPayloadLimit) {
        // 0, deliberately: a movie without the maker's atom is a movie of another camera, and no error.
        return exif_missing("MKRI", maker, 0);
    }
    exif_length = read_exif(maker.start, maker.end - maker.start);
    *out = exif_buffer;
    nq360_log(1, "[.mov .mp4 analyze] exif_data end");
    return 0;
}

// Logs why an atom of the way to the maker block is not there and returns the failing search's result, or `code`.
int _mov::exif_missing(const char* type, const Atom& atom, int code) {
    if (atom.result != 0) {
        fail_system(atom.result);
        nq360_log(3, "[.mov .mp4 analyze] exif_data error:Not Found %s atom: errnum:%d errstr %s", type, atom.result,
                  error_text);
        return atom.result;
    }
    nq360_log(3, "[.mov .mp4 analyze] exif_data error:Not Found %s atom", type);
    return fail(code, (std::string("Not Found ") + type + " atom").c_str());
}

int _mov::xml_data(char** out) {
    nq360_log(1, "[.mov .mp4 analyze] xml_data start");
    *out = nullptr;
    const Atom moov = find("moov", 0, 0);
    if (!moov.found()) {
        const int result = xml_missing("moov", "moov", moov);
        if (moov.result != 0) {
            throw_text("%s", system_text(result).c_str());
        }
        return result;
    }
    Atom track;
    if (const int result = find_spherical_track(moov, &track); result != 0) {
        return result;
    }
    const Atom uuid = find_in("uuid", track);
    if (uuid.result != 0) {
        return uuid.result;
    }
    if (!uuid.found() || uuid.end - uuid.start > kPayloadLimit) {
        return xml_error("Not Found uuid atom: errnum:-1 errstr Not Found uuid atom");
    }
    return spherical_text(uuid, out);
}

// Logs why an atom of the way to the spherical text is not there and returns the failing search's result, or -1.
int _mov::xml_missing(const char* type, const char* failing_type, const Atom& atom) {
    if (atom.result != 0) {
        nq360_log(3, "[.mov .mp4 analyze] xml_data error:Not Found %s atom: errnum:%d errstr %s", failing_type,
                  atom.result, system_text(atom.result).c_str());
        return atom.result;
    }
    return xml_error((std::string("Not Found ") + type + " atom").c_str());
}

int _mov::xml_error(const char* text) {
    nq360_log(3, "[.mov .mp4 analyze] xml_data error:%s", text);
    error_code = -1;
    return -1;
}

// The first track when its number says video, else the second, whatever its number.
int _mov::find_spherical_track(const Atom& moov, Atom* track) {
    int64_t from = moov.start;
    for (int i = 0; i < 2; ++i) {
        *track = find("trak", from, moov.end);
        if (!track->found()) {
            return xml_missing("trak", "trak", *track);
        }
        const Atom header = find_in("tkhd", *track);
        if (!header.found()) {
            // A failing search is logged as the track's; deliberate.
            return xml_missing("tkhd", "trak", header);
        }
        int number = -1;
        read_tkhd(header.start, 0, &number);
        if (number == 0) {
            break;
        }
        from = track->end;
    }
    return 0;
}

int _mov::spherical_text(const Atom& uuid, char** out) {
    uint8_t bytes[kUuidSize] = {};
    if (seek(uuid.start) != 0 || !read(bytes, sizeof bytes) || std::memcmp(bytes, kSphericalUuid, sizeof bytes) != 0) {
        return xml_error("uuid Not youtube360 UUID");
    }
    if (read_xml(uuid.start + kUuidSize, uuid.end - uuid.start - kUuidSize) == 0) {
        return xml_error("read error");
    }
    *out = xml_buffer;
    return 0;
}

std::string _mov::payload(const std::vector<std::string>& types) {
    Atom atom = {0, 0, 0};
    for (const std::string& type : types) {
        atom = find_in(type.c_str(), atom);
        if (!atom.found() || atom.end <= atom.start) {
            return "";
        }
    }
    const int64_t there = std::min(atom.end, size()) - atom.start;
    if (there <= 0 || there > kPayloadLimit) {
        return "";
    }
    std::string bytes(static_cast<size_t>(there), '\0');
    bytes.resize(seek(atom.start) == 0 ? read_some(bytes.data(), bytes.size()) : 0);
    return bytes;
}

int _mov::read_track(int64_t* moov_pos, int64_t* trak_pos, int64_t* insert_pos, int64_t* tail_length) {
    // The line of xml_data; deliberate.
    nq360_log(1, "[.mov .mp4 analyze] xml_data start");
    const Atom moov = find("moov", 0, 0);
    if (!moov.found()) {
        return -1;
    }
    Atom track = find_in("trak", moov);
    if (track.found() && track_number(track) != 0) {
        track = find("trak", track.end, moov.end);
        if (track.found() && track_number(track) != 0) {
            return -1;
        }
    }
    if (!track.found()) {
        return -1;
    }
    *moov_pos = moov.start - header_size(moov.start, moov.end);
    *trak_pos = track.start - header_size(track.start, track.end);
    *insert_pos = track.end;
    *tail_length = size() - track.end;
    return 0;
}

void _mov::wtire_xml_data(const char* text) {
    if (!stream || !text) {
        fail_writing(stream ? "there is no text" : "the file is closed");
    }
    const size_t text_size = std::strlen(text);
    require_text_fits(text_size, static_cast<size_t>(kPayloadLimit - kUuidSize));
    int64_t moov_pos;
    int64_t trak_pos;
    int64_t insert_pos;
    int64_t tail_length;
    if (read_track(&moov_pos, &trak_pos, &insert_pos, &tail_length) != 0) {
        fail_writing("the movie has no video track");
    }
    const auto delta = static_cast<uint32_t>(kShortHeader + kUuidSize + static_cast<int64_t>(text_size));
    require_growable("moov", moov_pos, delta);
    require_growable("trak", trak_pos, delta);
    require_closed_movie(insert_pos);

    std::string atom = to_big_endian32(delta) + "uuid";
    atom.append(reinterpret_cast<const char*>(kSphericalUuid), sizeof kSphericalUuid);
    atom.append(text, text_size);
    insert(insert_pos, atom);
    errno = 0;
    if (wtire_atom_size(0, moov_pos, delta) != 0 || wtire_atom_size(0, trak_pos, delta) != 0) {
        fail_writing_system();
    }
    flush();
}

// Throws unless the header that wtire_atom_size changes is where it is taken to be and the new size fits its form.
void _mov::require_growable(const char* type, int64_t position, uint32_t delta) {
    Header header;
    const bool found = read_header(position, &header) && header.type == atom_type(type);
    const bool fits = header.size == kLongHeader || header.atom_size + delta <= UINT32_MAX;
    if (!found || !fits || header.atom_size < header.size) {
        fail_writing((std::string("the size of the ") + type + " atom cannot grow").c_str());
    }
}

// Throws unless the track and the movie atom end where they should and no media data follows them: chunk offsets
// count from the beginning of the file, and would be wrong for what moves up.
void _mov::require_closed_movie(int64_t insert_pos) {
    const Atom moov = find("moov", 0, 0);
    if (insert_pos > moov.end || moov.end > size()) {
        fail_writing("the movie is cut off");
    }
    for (const char* media : {"mdat", "moof"}) {
        if (find(media, moov.end, 0).found()) {
            fail_writing("media data follows the moov atom");
        }
    }
}

int _mov::wtire_atom_size(int /*extra*/, int64_t position, uint32_t delta) {
    uint8_t bytes[kLongHeader] = {};
    if (seek(position) != 0 || !read(bytes, 4)) {
        return -1;
    }
    uint64_t size = big_endian32(bytes);
    if (size == 1) {
        if (!read(bytes + 4, kLongHeader - 4)) {
            return -1;
        }
        size = big_endian64(bytes + kShortHeader);
    }
    size += delta;
    // Established, and blind to the form that the header has: a size beyond 32 bits goes where only the long form has
    // one, a smaller one where the long form has its mark.
    bool written;
    if (size > UINT32_MAX) {
        written = overwrite(position + 8, to_big_endian32(size >> 32).data(), 4) &&
                  overwrite(position + 12, to_big_endian32(size).data(), 4);
    } else {
        written = overwrite(position, to_big_endian32(size).data(), 4);
    }
    return written ? 0 : -1;
}
