#include "sample/mov_atoms.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "support/temp_dir.h"

namespace sample {
namespace {

using namespace test_support;

// An atom by its place in the bytes around it.
struct Atom {
    std::string type;
    uint64_t start;    // of its header
    uint64_t content;  // just after its header
    uint64_t end;
};

// `header` holds the first 16 bytes of the atom, or what there is of them.
Atom parse_header(const Bytes& header, uint64_t start) {
    const uint64_t size = read_big_endian(header, 0, 4);
    Atom atom{to_string(slice(header, 4, 8)), start, start + 8, start + size};
    if (size == 1) {
        atom.content = start + 16;
        atom.end = start + read_big_endian(header, 8, 8);
    }
    if (atom.end < atom.content) {
        throw std::runtime_error("the atom " + atom.type + " is shorter than its header");
    }
    return atom;
}

std::vector<Atom> children(const Bytes& bytes, uint64_t from, uint64_t to) {
    std::vector<Atom> atoms;
    while (from < to) {
        atoms.push_back(parse_header(slice(bytes, from, std::min<uint64_t>(from + 16, bytes.size())), from));
        from = atoms.back().end;
    }
    return atoms;
}

std::optional<Atom> find_child(const Bytes& bytes, const Atom& parent, std::string_view type) {
    for (const Atom& atom : children(bytes, parent.content, parent.end)) {
        if (atom.type == type) {
            return atom;
        }
    }
    return std::nullopt;
}

void grow(Bytes& bytes, const Atom& atom, uint64_t by) {
    overwrite(bytes, atom.start, be32(atom.end - atom.start + by));
}

Atom whole(const Bytes& moov) {
    return {"moov", 0, 8, moov.size()};
}

void add_maker_atom(Bytes& moov, const Bytes& payload) {
    const Bytes maker = atom("MKRI", payload);
    const std::optional<Atom> udta = find_child(moov, whole(moov), "udta");
    const Bytes added = udta ? maker : atom("udta", maker);
    const uint64_t place = udta ? udta->end : moov.size();
    if (udta) {
        grow(moov, *udta, added.size());
    }
    grow(moov, whole(moov), added.size());
    moov.insert(moov.begin() + static_cast<std::ptrdiff_t>(place), added.begin(), added.end());
}

// Adds `by` to the file positions of a track's samples.
void move_samples(Bytes& moov, const Atom& track, uint64_t by) {
    std::optional<Atom> found = track;
    for (const char* type : {"mdia", "minf", "stbl"}) {
        found = find_child(moov, *found, type);
        if (!found) {
            return;
        }
    }
    for (const Atom& table : children(moov, found->content, found->end)) {
        const int width = table.type == "stco" ? 4 : table.type == "co64" ? 8 : 0;
        if (width == 0) {
            continue;
        }
        const uint64_t count = read_big_endian(moov, table.content + 4, 4);
        for (uint64_t i = 0; i < count; ++i) {
            const uint64_t place = table.content + 8 + i * static_cast<uint64_t>(width);
            overwrite(moov, place, big_endian(read_big_endian(moov, place, width) + by, width));
        }
    }
}

void move_all_samples(Bytes& moov, uint64_t by) {
    for (const Atom& track : children(moov, 8, moov.size())) {
        if (track.type == "trak") {
            move_samples(moov, track, by);
        }
    }
}

class MovieOnDisk {
  public:
    explicit MovieOnDisk(const std::string& path)
        : path_(path),
          size_(std::filesystem::file_size(path)),
          file_(path, std::ios::binary | std::ios::in | std::ios::out) {
        for (uint64_t at = 0; at < size_;) {
            atoms_.push_back(parse_header(read(at, std::min<uint64_t>(at + 16, size_)), at));
            at = atoms_.back().end;
        }
    }

    Bytes read(uint64_t from, uint64_t to) {
        Bytes bytes(to - from);
        file_.seekg(static_cast<std::streamoff>(from));
        file_.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        check_stream();
        return bytes;
    }

    // Writes up to the end of the file; the file does not become shorter.
    void write(uint64_t from, const Bytes& bytes) {
        file_.seekp(static_cast<std::streamoff>(from));
        file_.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        file_.flush();
        check_stream();
    }

    const Atom& atom(std::string_view type) const {
        for (const Atom& one : atoms_) {
            if (one.type == type) {
                return one;
            }
        }
        throw std::runtime_error(path_ + " has no atom " + std::string(type));
    }

    uint64_t size() const { return size_; }

  private:
    void check_stream() const {
        if (!file_) {
            throw std::runtime_error("cannot read or write " + path_);
        }
    }

    std::string path_;
    uint64_t size_;
    std::fstream file_;
    std::vector<Atom> atoms_;
};

}  // namespace

void finish_movie(const std::string& path, const Bytes& payload, bool moov_first) {
    MovieOnDisk movie(path);
    const Atom old = movie.atom("moov");
    Bytes moov = movie.read(old.start, old.end);
    if (!payload.empty()) {
        add_maker_atom(moov, payload);
    }
    const Bytes after = movie.read(old.end, movie.size());
    if (!moov_first || movie.atom("mdat").start > old.start) {
        movie.write(old.start, moov + after);
        return;
    }
    const uint64_t place = movie.atom("ftyp").end;
    const Bytes media = movie.read(place, old.start);
    move_all_samples(moov, moov.size());
    movie.write(place, moov + media + after);
}

}  // namespace sample
