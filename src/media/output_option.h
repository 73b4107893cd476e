// The settings of one export, from the entry to the frame preparation and the writer.
#pragma once

#include <array>

#include "media/share_header.h"
#include "projection/correct_map.h"
#include "projection/equidistant_map.h"
#include "projection/image_frame.h"

// Pairs in a part of a movie: four seconds. Each part costs a key frame more and is decoded from the key frame before
// it, which a longer part pays for more easily; of shorter ones there are more to share out, and fewer packets wait for
// their turn.
constexpr int64_t kPartPairs = 120;

struct OutputOption {
    RotationCorrect rotation{};  // radians; lens turns, two angles that stay 0, then the third angle
    float start1 = 0;            // seconds; first and last instant of each input
    float start2 = 0;
    float end1 = 0;
    float end2 = 0;
    int32_t audio_source = 0;  // 0: input 1, 1: input 2, any other value: no sound
    YuvCorrectMap correct1{};
    YuvCorrectMap correct2{};
    ImageSize output_size{0, 0};
    ImageFrame band;         // rearranged for the stitcher; not loaded without a band
    int32_t bandheight = 0;  // rows of the band's Y plane
    double radius = 0;       // pixels from a lens circle's centre to 90 degrees off its axis
    EquidistantTransMap transmap;
    const char* datetime = nullptr;  // borrowed
    int32_t update_frame = 10;       // frames between two progress replies; never 0

    ViewTurn view{};     // turns the look after `rotation`
    double feather = 0;  // radians on each side of the seam over which the lenses are mixed
    std::array<double, 3> gains[2] = {{{1, 1, 1}}, {{1, 1, 1}}};  // of each lens's planes, before its correction
    bool usual_size = false;     // the panorama has the usual size for the lenses; output_size is then set by these
    bool filter = false;         // a panorama much smaller than the lenses' own scale is filtered before sampling
    int32_t quality = 0;         // of a picture, 1 to 100; 0: the encoder's own choice
    int64_t bit_rate = 0;        // of a movie's pictures; 0: as of the inputs
    bool sound_aac = false;      // AAC instead of PCM
    bool keep_metadata = false;  // of lens 1's file, in the panorama
    bool web = false;            // a movie's index lies in front
    int32_t workers = 0;         // parts of a movie made at a time; negative: one per core; 0: it is not made in parts
    int64_t part_pairs = kPartPairs;
    ShareHeader share;  // which parts are made, for a share in the place of a movie; its count is 0 for a movie
    bool looks_for_missing_parts = false;  // of inputs that are not whole: refused, in words, unless the next is set
    bool read_what_is_there = false;       // an input that is not whole is read as far as it goes
    bool cancel_at_every_frame = false;    // not at progress replies only
};
