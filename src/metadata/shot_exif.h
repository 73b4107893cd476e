// What a lens picture's EXIF tells of the shot and holds for the panorama too: camera, times, place, exposure. Not what
// belongs to that one file: its thumbnail, its size, its orientation, its maker note (the offsets in one would lead
// elsewhere).
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "metadata/capture_time.h"
#include "metadata/tiff.h"

// Well-formed values alone, in the types that the standard gives them.
struct ShotExif {
    TiffDirectory image;
    TiffDirectory photo;
    TiffDirectory place;
};

// Reads a block of either byte order, or the camera's own of a movie. What is broken is left out, all of it where the
// header is.
ShotExif read_shot_exif(const std::string& block);

// When the shot was taken, with decimals and offset where they are told.
std::optional<CaptureTime> capture_time(const ShotExif& shot);
// Puts another time in the place of all of the shot's.
void set_capture_time(const CaptureTime& time, ShotExif* shot);

// Where it was taken, as ISO 6709 has it ("+35.658600+139.745400+40.000/"); empty: not told.
std::string location(const ShotExif& shot);

// "MERIDAN OPTICS" and "RT-KA500"; empty: not told.
std::string camera_make(const ShotExif& shot);
std::string camera_model(const ShotExif& shot);

// The EXIF block of the shot's panorama of this size, big-endian, with all that the standard demands. At most 65527
// bytes, which a segment holds.
std::string panorama_exif(const ShotExif& shot, int width, int height);
