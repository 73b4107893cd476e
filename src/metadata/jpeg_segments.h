// What a JPEG's segments tell of its picture, without any decoding.
#pragma once

struct JpegSegments {
    // Pixels; 0 where this is no JPEG, or none of the usual kinds with 8 bits: baseline, extended or progressive.
    int width = 0;
    int height = 0;
    bool is_cut_off = false;  // a JPEG without its end marker
};

JpegSegments read_jpeg_segments(const char* path);
