// A picture as a JPEG in memory.
#pragma once

#include "media/ffmpeg_ptr.h"

// A JPEG of a picture of YUV420P, of a quality of 1 to 100; the packet holds its bytes. A JPEG has the full range of
// values: what is not marked AVCOL_RANGE_JPEG is brought to it. Throws a text when FFmpeg cannot encode the picture.
PacketPtr encoded_jpeg(const AVFrame* picture, int quality);
