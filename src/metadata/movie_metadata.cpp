#include "metadata/movie_metadata.h"

#include <algorithm>

#include "metadata/big_endian.h"
#include "metadata/spherical.h"

namespace {

constexpr char kLocationType[] = "\xA9xyz";
constexpr char kLocationKey[] = "com.apple.quicktime.location.ISO6709";

// Undetermined, in packed ISO 639-2: a text of such a language is in UTF-8.
constexpr uint64_t kLanguage = 0x55C4;

// Fields of a visual sample description before its boxes.
constexpr size_t kVisualEntryHead = 78;

constexpr uint8_t kSphericalUuid[16] = {0xFF, 0xCC, 0x82, 0x63, 0xF8, 0x55, 0x4A, 0x93,
                                        0x88, 0x14, 0x58, 0x7A, 0x02, 0x52, 0x1F, 0xDD};

// The times' places in mvhd, tkhd and mdhd: behind version and flags, the creation first.
constexpr size_t kTimesAt = 4;

size_t time_size(const std::string& header) {
    return !header.empty() && header[0] == 1 ? 8 : 4;
}

// A point on the earth: two numbers with signs, perhaps a height, perhaps the name of a system of coordinates.
std::string checked_location(const std::string& text) {
    constexpr size_t kMost = 100;
    constexpr char kCharacters[] = "+-.0123456789/_ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const bool is_plain = text.size() <= kMost && text.find_first_not_of(kCharacters) == std::string::npos;
    const bool has_signs = text.find_first_of("+-") == 0 && text.find_first_of("+-", 1) != std::string::npos;
    return is_plain && has_signs ? text : "";
}

// Of the texts of an international text of user data the first: its size, its language, its characters.
std::string first_user_text(const std::string& payload) {
    constexpr size_t kHead = 4;
    if (payload.size() < kHead) {
        return "";
    }
    return payload.substr(kHead, static_cast<size_t>(from_big_endian(payload, 0, 2)));
}

// The number of a key in QuickTime's list of keys, which counts from 1; 0: it is not there.
uint64_t key_number(const std::string& keys, const std::string& name) {
    constexpr size_t kHead = 8;
    const std::vector<Atom> atoms = parse_atoms(keys, kHead, nullptr);
    const auto key = std::find_if(atoms.begin(), atoms.end(), [&](const Atom& atom) { return atom.payload == name; });
    return key == atoms.end() ? 0 : static_cast<uint64_t>(key - atoms.begin()) + 1;
}

// The first of the atoms with this type, or null.
const Atom* first_of(const std::vector<Atom>& atoms, const std::string& type) {
    const auto atom = std::find_if(atoms.begin(), atoms.end(), [&](const Atom& each) { return each.type == type; });
    return atom == atoms.end() ? nullptr : &*atom;
}

// The text of a key in a moov's meta atom, whose children QuickTime writes at once, others behind four bytes.
std::string key_text(const std::string& meta, const std::string& name) {
    constexpr size_t kDataHead = 8;  // kind and language
    for (const size_t head : {0, 4}) {
        const std::vector<Atom> atoms = parse_atoms(meta, head, nullptr);
        const Atom* keys = first_of(atoms, "keys");
        const Atom* list = first_of(atoms, "ilst");
        const uint64_t number = keys && list ? key_number(keys->payload, name) : 0;
        if (number == 0) {
            continue;
        }
        const std::vector<Atom> values = parse_atoms(list->payload, 0, nullptr);
        const Atom* value = first_of(values, to_big_endian(number, 4));
        const std::vector<Atom> parts = value ? parse_atoms(value->payload, 0, nullptr) : std::vector<Atom>();
        const Atom* data = first_of(parts, "data");
        return data && data->payload.size() >= kDataHead ? data->payload.substr(kDataHead) : "";
    }
    return "";
}

bool is_video(Atom* track) {
    constexpr size_t kHandlerAt = 8;
    const Atom* handler = find_descendant(track, {"mdia", "hdlr"});
    return handler && handler->payload.size() >= kHandlerAt + 4 && handler->payload.compare(kHandlerAt, 4, "vide") == 0;
}

void set_times(int64_t seconds, Atom* header) {
    const size_t size = header ? time_size(header->payload) : 0;
    if (!header || header->payload.size() < kTimesAt + 2 * size || (size == 4 && seconds > int64_t{UINT32_MAX})) {
        return;
    }
    const std::string time = to_big_endian(static_cast<uint64_t>(seconds), size);
    header->payload.replace(kTimesAt, 2 * size, time + time);
}

// Puts boxes behind those of a sample description, before the zeros that may end it.
bool add_boxes(const std::string& boxes, Atom* entry) {
    if (entry->payload.size() < kVisualEntryHead) {
        return false;
    }
    std::string rest;
    parse_atoms(entry->payload, kVisualEntryHead, &rest);
    entry->payload.insert(entry->payload.size() - rest.size(), boxes);
    return true;
}

}  // namespace

int64_t movie_creation_time(_mov* movie) {
    const std::string header = movie->payload({"moov", "mvhd"});
    const size_t size = time_size(header);
    const uint64_t seconds = header.size() >= kTimesAt + size ? from_big_endian(header, kTimesAt, size) : 0;
    return seconds <= uint64_t{INT64_MAX} ? static_cast<int64_t>(seconds) : 0;
}

std::string movie_location(_mov* movie) {
    const std::string location = checked_location(first_user_text(movie->payload({"moov", "udta", kLocationType})));
    return location.empty() ? checked_location(key_text(movie->payload({"moov", "meta"}), kLocationKey)) : location;
}

void set_creation_time(int64_t seconds, Atom* moov) {
    set_times(seconds, find_child(moov, "mvhd"));
    for (Atom& track : moov->children) {
        if (track.type == "trak") {
            set_times(seconds, find_child(&track, "tkhd"));
            set_times(seconds, find_descendant(&track, {"mdia", "mdhd"}));
        }
    }
}

constexpr size_t kMostUserText = 0xFFFF;  // its length has two bytes

void add_user_text(const std::string& type, const std::string& text, Atom* moov) {
    if (text.empty()) {
        return;
    }
    if (!find_child(moov, "udta")) {
        moov->children.push_back({"udta", "", {}, "", false});
    }
    const std::string kept = text.substr(0, kMostUserText);
    const std::string payload = to_big_endian(kept.size(), 2) + to_big_endian(kLanguage, 2) + kept;
    find_child(moov, "udta")->children.push_back({type, payload, {}, "", false});
}

bool add_spherical_video(const std::string& document, Atom* moov) {
    const auto track = std::find_if(moov->children.begin(), moov->children.end(),
                                    [](Atom& atom) { return atom.type == "trak" && is_video(&atom); });
    if (track == moov->children.end()) {
        return false;
    }
    Atom* descriptions = find_descendant(&*track, {"mdia", "minf", "stbl", "stsd"});
    if (!descriptions || descriptions->children.empty() ||
        !add_boxes(spherical_video_boxes(), &descriptions->children.front())) {
        return false;
    }
    const std::string uuid(reinterpret_cast<const char*>(kSphericalUuid), sizeof kSphericalUuid);
    track->children.push_back({"uuid", uuid + document, {}, "", false});
    return true;
}
