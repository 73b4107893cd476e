// Pictures in the range of values that stills have.
#pragma once

#include "media/ffmpeg_ptr.h"

// A picture of YUV420P with black at 0 and white at 255: what is not marked AVCOL_RANGE_JPEG is scaled, else the frame
// shares the picture's memory. Throws a text when FFmpeg cannot do it.
FramePtr in_full_range(const AVFrame* picture);

// Whether the values of a 4:2:0 or 4:2:2 frame take the full range of a byte, as pictures' do, and not 16 to 235.
bool has_full_range(const AVFrame* frame);
