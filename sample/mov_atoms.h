// Puts atoms of the camera into movies that FFmpeg wrote.
#pragma once

#include <string>

#include "support/bytes.h"

namespace sample {

// Puts the atom `MKRI` with this payload into moov/udta, and makes udta where there is none. With `moov_first` the
// moov atom then stands before the pictures and the sound.
void finish_movie(const std::string& path, const test_support::Bytes& payload, bool moov_first);

}  // namespace sample
