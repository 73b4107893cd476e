// What a movie's index tells of the shot besides its tracks: read from a lens movie, put into a panorama's index.
#pragma once

#include <cstdint>
#include <string>

#include "metadata/atoms.h"
#include "metadata/mov.h"

// Seconds since 1904 in UTC, as a movie counts them, at the beginning of 1970.
constexpr int64_t kUnixEpoch = 2082844800;

// When the movie says that it was made, in seconds since 1904; 0: not told.
int64_t movie_creation_time(_mov* movie);
// Where, as ISO 6709 has it; empty: not told. From user data or from QuickTime's keys.
std::string movie_location(_mov* movie);

// Sets the times of the movie and its tracks, where they have room for them.
void set_creation_time(int64_t seconds, Atom* moov);
// Adds a text of user data ("\xA9xyz", ...); no empty one.
void add_user_text(const std::string& type, const std::string& text, Atom* moov);
// Adds the document of Spherical Video V1 and the boxes of V2 to the video track; false when there is none with a
// sample description.
bool add_spherical_video(const std::string& document, Atom* moov);
