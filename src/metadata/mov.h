// The atoms of a QuickTime or ISO base media movie: hands out the camera's maker block and the spherical text of
// the video track, and adds such a text to a finished movie.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "metadata/stream.h"

// A type as read_mov takes it: the number whose bytes in memory are the four characters.
inline uint32_t atom_type(const char* characters) {
    uint32_t type;
    std::memcpy(&type, characters, sizeof type);
    return type;
}

class _mov : public MetadataStream {
  public:
    size_t exif_length = 0;  // bytes of the block that exif_data hands out

    // Opens a regular file. Throws a `const char*` text when that fails.
    _mov(const char* path, bool writable);
    ~_mov();

    // Closes the stream; the buffers stay. Throws a text when what was written could not be kept.
    void close_stream();

    // Finds an atom among those that follow one another from `from` to `to`, 0: to the end of the file. Sets
    // `start` to its payload and `end` to what follows the atom, both -1 when it is not there. 0, or negative
    // when an atom on the way has no size to go on by.
    int read_mov(uint32_t type, int64_t from, int64_t to, int64_t* start, int64_t* end);

    // Reads the number that tells the video track (0) from others out of the track header whose payload is
    // given: the number; 0 with `value` -1 when the file ends before it; else negative. `extra` is ignored.
    int read_tkhd(int64_t payload, int64_t extra, int* value);

    // Finds the beginnings of the movie atom and of the video track among the first two tracks, the place
    // behind that track, and how many bytes follow there: 0, or -1 with the outputs unchanged.
    int read_track(int64_t* moov_pos, int64_t* trak_pos, int64_t* insert_pos, int64_t* tail_length);

    // 0 and the maker block, `exif_length` bytes of it, or null in a movie without one; else negative, and
    // null. Throws a text when the file is too broken to look for the movie atom.
    int exif_data(uint8_t** out);

    // 0 and the zero-terminated text; else negative, and null. Throws as exif_data does.
    int xml_data(char** out);

    // The content of the atom that is reached by these types, each the first of its kind in the one before; empty
    // when it is not there, is broken or is no block of metadata by its size.
    std::string payload(const std::vector<std::string>& types);

    // Adds an atom with this text to the video track. Throws a text when there is no such track, when the
    // movie would not stay whole, or when writing fails.
    void wtire_xml_data(const char* text);

    // Enlarges the size of the atom at a position: 0, or -1 when it cannot be read or written. `extra` is
    // ignored.
    int wtire_atom_size(int extra, int64_t position, uint32_t delta);

  private:
    // What a search found; `result` is not 0 when the search itself failed.
    struct Atom {
        int result;
        int64_t start;
        int64_t end;
        bool found() const { return result == 0 && start != -1; }
    };

    // The size and the type of the atom at a position.
    struct Header {
        uint32_t type = 0;
        int64_t size = 0;       // of the header itself
        int64_t atom_size = 0;  // of the whole atom; negative for more than any file has
    };

    bool read_header(int64_t position, Header* header);
    Atom find(const char* type, int64_t from, int64_t to);
    Atom find_in(const char* type, const Atom& parent) { return find(type, parent.start, parent.end); }
    int track_number(const Atom& track);
    int exif_missing(const char* type, const Atom& atom, int code);
    int xml_error(const char* text);
    int xml_missing(const char* type, const char* failing_type, const Atom& atom);
    int find_spherical_track(const Atom& moov, Atom* track);
    int spherical_text(const Atom& uuid, char** out);
    void require_growable(const char* type, int64_t position, uint32_t delta);
    void require_closed_movie(int64_t insert_pos);
};
