// One decoded picture of a lens file.
#pragma once

#include <string>

#include "projection/image_frame.h"

// The picture, or of a movie the first frame at or after `seconds`, as 4:2:0 planes. Throws CommandError that
// names the file.
ImageFrame read_lens_frame(const std::string& path, double seconds);
