// One pair of lens pictures, stitched here rather than by an export: for the preview and for matching.
#pragma once

#include "jobs/arguments.h"
#include "jobs/library.h"
#include "jobs/pair_options.h"
#include "projection/image_frame.h"

struct LensPair {
    ImageFrame pictures[2];
    double turns[2] = {0, 0};  // radians, with what the files' orientations add
    bool is_movie = false;
};

// Reads both pictures at the start times. Throws CommandError that names the file that does not serve.
LensPair read_pair(const PairOptions& options);

// Offsets added in place, as an export adds them.
void correct(ImageFrame* picture, const Correction& correction);

// The panorama of the pair. `band` is rearranged for the stitcher or not loaded.
ImageFrame stitched(const LensPair& pair, Size size, int tilt, const ImageFrame& band = {});
