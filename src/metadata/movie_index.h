// The index (moov) of a finished movie: read into memory, and written back where it stood or in front of the media
// data. The chunks' offsets, which count from the beginning of the file, follow what moves.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "metadata/atoms.h"
#include "metadata/stream.h"

class MovieIndex : public MetadataStream {
  public:
    Atom moov;  // to be changed, and not made smaller

    // Opens the file for writing. Throws a `const char*` text when that fails, when there is no index, or when it
    // does not tell of all media data.
    explicit MovieIndex(const char* path);

    // Writes the index back. All other bytes of the file stay, and move up where they must. Throws when that fails;
    // the file is then neither old nor new.
    void write();
    // The same, in front of the media data.
    void write_in_front();
    // Throws when what was written could not be kept.
    void close_stream();

  private:
    struct Place {
        std::string type;
        int64_t start;
        int64_t end;
    };

    // What the file's bytes move by: those from `front` to the old index by the new one's size, those behind it by
    // what it has grown.
    struct Move {
        int64_t front;
        int64_t size;
        int64_t growth;
    };

    std::vector<Place> top_level();
    void read_index(const Place& place);
    void require_whole(const Atom& atom);
    void write_at(int64_t front);
    Move plan(int64_t front);
    bool widen_offsets(const Move& move);
    void patch_offsets(const Move& move);
    uint64_t moved(uint64_t offset, const Move& move) const;
    Atom* chunk_offsets(Atom* track);

    std::vector<Place> atoms_;
    int64_t start_ = 0;  // of the index in the file
    int64_t end_ = 0;
};
