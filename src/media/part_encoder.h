// The encoder of one part of a movie.
#pragma once

#include "media/ffmpeg_ptr.h"

// The settings and the header of an open encoder, without what it holds to encode with.
CodecPtr settings_of(const AVCodecContext* encoder);

// Opens a further encoder with the settings of `like`, open or not, whose packets go into the same stream. FFmpeg's
// code; AVERROR_BUG where it would write another header than `like`, by which a player could not decode its packets.
int open_part_encoder(const AVCodecContext* like, CodecPtr* encoder);
