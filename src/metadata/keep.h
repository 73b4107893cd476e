// Keeps what lens 1's file tells of the shot (camera, times, place, exposure) in a finished panorama, with
// spherical metadata as its standards have it: GPano XMP in a picture; Spherical Video V1 and V2 in a movie.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "metadata/shot_exif.h"

struct KeptMetadata {
    ShotExif exif;              // of a movie, out of the camera's own block
    int64_t creation_time = 0;  // of a movie, seconds since 1904 as its header has them; 0: not told
    std::string location;       // of a movie, ISO 6709 ("+35.6586+139.7454/"); empty: not told
};

// Reads a JPEG or a movie by what it begins with. What is not there or is broken is left out. Throws a
// `const char*` text when the file cannot be opened.
KeptMetadata read_kept_metadata(const char* path);

// What of that a panorama movie tells.
struct MovieTexts {
    std::optional<int64_t> time;  // when the shot was taken, seconds since 1970
    std::string timestamp;        // the same, or another text, for the spherical text
    std::string location;
    std::string make;
    std::string model;
};

// `datetime` takes the place of lens 1's capture time when it is another one ("2026:01:02 03:04:05" or ISO 8601; any
// other text stands in the spherical text alone); null and empty: lens 1's.
MovieTexts movie_texts(const KeptMetadata& kept, const char* datetime);

// Write into a finished panorama of this size; all else in the file stays. `datetime` as above. They throw a
// `const char*` text ("Can't write metadata: ...") when that fails, and the file is then neither old nor new.
void write_picture_metadata(const char* path, int width, int height, const KeptMetadata& kept, const char* datetime);
void write_movie_metadata(const char* path, int width, int height, const MovieTexts& texts);

// Moves a finished movie's index (moov) in front of its media data, so that it plays while it loads. In place, and in
// memory of the index's size. Throws as the writers do.
void move_index_to_front(const char* path);
