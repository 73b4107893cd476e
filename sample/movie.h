// Pairs of lens movies.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "sample/options.h"

namespace sample {

struct MovieOptions : ShotOptions {
    std::array<int, 2> frames{150, 150};
    std::array<std::string, 2> codecs{"h264-baseline", "h264-baseline"};  // or h264-main, h264-high, mjpeg
    int64_t bit_rate = 0;                                                 // of H.264; 0: the camera's at this size
    int key_frames = 15;                                                  // one in so many frames
    int quality = 3;                                                      // of MJPEG
    bool full_range = false;                                              // of H.264; MJPEG always is
    std::array<int, 2> rate{30000, 1001};
    int time_scale = 30000;  // of the video track
    std::array<bool, 2> sound{true, false};
    std::array<bool, 2> sound_first{};  // the sound track before the video track
    std::string sound_codec = "pcm";    // or aac
    int sound_rate = 48000;
    int sound_channels = 2;
    double sound_seconds = -1;  // negative: as long as the pictures
    bool labels = true;         // the lens and the frame's number burnt in
    bool fragmented = false;
    bool moov_first = false;
    bool maker_atom = true;
};

void write_movies(const MovieOptions& options);

}  // namespace sample
