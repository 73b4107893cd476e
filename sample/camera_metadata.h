// What the camera writes into its files about itself and the shot.
#pragma once

#include <cstdint>
#include <string>

#include "support/bytes.h"

namespace sample {

struct CameraTags {
    std::string make = "MERIDAN OPTICS";
    std::string model = "RT-KA500";
    std::string datetime = "2026:01:02 03:04:05";
    int orientation = 1;
    int capture_mode = 129;
    int tag_4003 = 1;
    int tag_4034 = 1;
    uint32_t multi_capture = 0;
    int camera_orientation = 0;
    bool maker_note = true;
};

// The block of a JPEG's EXIF segment.
test_support::Bytes exif_block(const CameraTags& tags);

// The payload of a movie's MKRI atom: the same directories after a header of the camera's own.
test_support::Bytes maker_block(const CameraTags& tags);

// The JPEG with segments put in right after its start marker.
test_support::Bytes with_segments(const test_support::Bytes& jpeg, const test_support::Bytes& segments);

}  // namespace sample
