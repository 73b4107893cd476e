// A picture written as a JPEG.
#pragma once

#include <string>

#include "projection/image_frame.h"

// Writes a 4:2:0 picture of even size. A JPEG has the full range of values; `full_range` says whether the picture has.
// Throws CommandError that names the file, which is removed when it could not be written whole.
void write_jpeg(const std::string& path, const ImageFrame& picture, bool full_range);
