#include "metadata/movie_index.h"

#include <algorithm>
#include <cerrno>

#include "metadata/big_endian.h"

namespace {

constexpr size_t kShortHeader = 8;
constexpr size_t kLongHeader = 16;

// Some hundred hours of a movie.
constexpr int64_t kIndexLimit = int64_t{256} << 20;

// No movie has more atoms side by side in its file.
constexpr size_t kAtomLimit = 100000;

// Version, flags and the number of offsets.
constexpr size_t kOffsetsHead = 8;

bool is_container(const Atom& atom) {
    for (const char* type : {"moov", "trak", "mdia", "minf", "stbl"}) {
        if (atom.type == type) {
            return true;
        }
    }
    return false;
}

bool has_wide_offsets(const Atom& offsets) {
    return offsets.type == "co64";
}

size_t offset_size(const Atom& offsets) {
    return has_wide_offsets(offsets) ? 8 : 4;
}

size_t offset_count(const Atom& offsets) {
    return static_cast<size_t>(from_big_endian(offsets.payload, 4, 4));
}

uint64_t offset_at(const Atom& offsets, size_t index) {
    const size_t size = offset_size(offsets);
    return from_big_endian(offsets.payload, kOffsetsHead + index * size, size);
}

}  // namespace

MovieIndex::MovieIndex(const char* path) {
    open(path, true, "[.mov .mp4 analyze]");
    atoms_ = top_level();
    const Place* index = nullptr;
    for (const Place& atom : atoms_) {
        if (atom.type == "moof") {
            fail_writing("the movie is in fragments");
        }
        if (atom.type == "moov" && !index) {
            index = &atom;
        }
    }
    if (!index) {
        fail_writing("the movie has no moov atom");
    }
    read_index(*index);
}

std::vector<MovieIndex::Place> MovieIndex::top_level() {
    std::vector<Place> atoms;
    const int64_t file_end = size();
    for (int64_t at = 0; at < file_end;) {
        uint8_t bytes[kLongHeader] = {};
        const size_t there = seek(at) == 0 ? read_some(bytes, sizeof bytes) : 0;
        const std::string header(reinterpret_cast<const char*>(bytes), sizeof bytes);
        uint64_t atom_size = from_big_endian(header, 0, 4);
        const size_t header_size = atom_size == 1 ? kLongHeader : kShortHeader;
        if (atom_size == 1) {
            atom_size = from_big_endian(header, kShortHeader, 8);
        }
        const bool fits = there >= header_size && atom_size >= header_size &&
                          atom_size <= static_cast<uint64_t>(file_end - at) && atoms.size() < kAtomLimit;
        if (!fits) {
            fail_writing("the movie is cut off or broken");
        }
        atoms.push_back({header.substr(4, 4), at, at + static_cast<int64_t>(atom_size)});
        at += static_cast<int64_t>(atom_size);
    }
    return atoms;
}

void MovieIndex::read_index(const Place& place) {
    start_ = place.start;
    end_ = place.end;
    if (end_ - start_ > kIndexLimit) {
        fail_writing("the movie's index is too large");
    }
    std::string bytes(static_cast<size_t>(end_ - start_), '\0');
    errno = 0;
    if (seek(start_) != 0 || !read(bytes.data(), bytes.size())) {
        fail_writing_system();
    }
    const bool is_large = from_big_endian(bytes, 0, 4) == 1;
    moov = parse_index(bytes.substr(is_large ? kLongHeader : kShortHeader));
    moov.is_large = is_large;
    require_whole(moov);
}

// Throws unless all tables of chunks can be found and read.
void MovieIndex::require_whole(const Atom& atom) {
    if (is_container(atom)) {
        const bool is_padding = std::all_of(atom.rest.begin(), atom.rest.end(), [](char byte) { return byte == 0; });
        if (!is_padding || !atom.payload.empty()) {
            fail_writing("the movie's index is broken");
        }
        for (const Atom& child : atom.children) {
            require_whole(child);
        }
    }
    if (atom.type == "stco" || atom.type == "co64") {
        const size_t room = atom.payload.size() - std::min(atom.payload.size(), kOffsetsHead);
        if (atom.payload.size() < kOffsetsHead || offset_count(atom) > room / offset_size(atom)) {
            fail_writing("the movie's table of chunks is broken");
        }
    }
}

void MovieIndex::write() {
    write_at(start_);
}

void MovieIndex::write_in_front() {
    const auto media =
        std::find_if(atoms_.begin(), atoms_.end(), [](const Place& atom) { return atom.type == "mdat"; });
    if (media == atoms_.end() || start_ < media->start) {
        write_at(start_);
    } else {
        // The file's type stays in front of all.
        write_at(atoms_.front().type == "ftyp" ? atoms_.front().end : 0);
    }
}

void MovieIndex::write_at(int64_t front) {
    Move move = plan(front);
    if (front != start_ || move.growth != 0) {
        if (widen_offsets(move)) {
            move = plan(front);
        }
        patch_offsets(move);
    }
    move_up(end_, size(), move.growth);
    move_up(front, start_, move.size);
    if (!overwrite(front, atom_bytes(moov).data(), static_cast<size_t>(move.size))) {
        fail_writing_system();
    }
    flush();
}

MovieIndex::Move MovieIndex::plan(int64_t front) {
    const auto size = static_cast<int64_t>(atom_bytes(moov).size());
    if (size < end_ - start_) {
        fail_writing("the movie's index has become smaller");
    }
    return {front, size, size - (end_ - start_)};
}

uint64_t MovieIndex::moved(uint64_t offset, const Move& move) const {
    if (offset >= static_cast<uint64_t>(end_)) {
        return offset + static_cast<uint64_t>(move.growth);
    }
    const bool lies_between = offset >= static_cast<uint64_t>(move.front) && offset < static_cast<uint64_t>(start_);
    return lies_between ? offset + static_cast<uint64_t>(move.size) : offset;
}

Atom* MovieIndex::chunk_offsets(Atom* track) {
    if (track->type != "trak") {
        return nullptr;
    }
    Atom* table = find_descendant(track, {"mdia", "minf", "stbl"});
    Atom* narrow = table ? find_child(table, "stco") : nullptr;
    return narrow || !table ? narrow : find_child(table, "co64");
}

// Makes tables 64 bits wide whose offsets would not fit 32 bits any more; whether there were any. That makes the index
// larger by at most its own size, so that what is not widened stays below.
bool MovieIndex::widen_offsets(const Move& move) {
    const auto most = static_cast<uint64_t>(UINT32_MAX - 2 * std::min(move.size, kIndexLimit));
    bool widened = false;
    for (Atom& track : moov.children) {
        Atom* offsets = chunk_offsets(&track);
        if (!offsets || has_wide_offsets(*offsets)) {
            continue;
        }
        const size_t count = offset_count(*offsets);
        std::string wide = offsets->payload.substr(0, kOffsetsHead);
        bool is_too_far = false;
        for (size_t i = 0; i < count; ++i) {
            const uint64_t offset = offset_at(*offsets, i);
            is_too_far = is_too_far || (offset > most && offset >= static_cast<uint64_t>(move.front));
            wide += to_big_endian(offset, 8);
        }
        if (is_too_far) {
            offsets->type = "co64";
            offsets->payload = wide;
            widened = true;
        }
    }
    return widened;
}

void MovieIndex::patch_offsets(const Move& move) {
    for (Atom& track : moov.children) {
        Atom* offsets = chunk_offsets(&track);
        const size_t count = offsets ? offset_count(*offsets) : 0;
        for (size_t i = 0; i < count; ++i) {
            const size_t size = offset_size(*offsets);
            offsets->payload.replace(kOffsetsHead + i * size, size,
                                     to_big_endian(moved(offset_at(*offsets, i), move), size));
        }
    }
}

void MovieIndex::close_stream() {
    close();
}
