// What a finished movie is told of itself, in one piece or joined.
#pragma once

#include <optional>
#include <string>

#include "metadata/keep.h"
#include "projection/image_frame.h"

// Writes the spherical metadata, so that viewers show it as a panorama, and with `texts` what lens 1's file tells of
// the shot. Then moves the index to the front if that is wanted. Throws a text when that fails.
void write_metadata_of_movie(const char* path, ImageSize size, const std::string& datetime,
                             const std::optional<MovieTexts>& texts, bool index_in_front);
