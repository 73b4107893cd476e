// Bicubic scalers that know the range of their pictures.
#pragma once

#include "media/ffmpeg_ptr.h"

struct PictureFormat {
    int width;
    int height;
    AVPixelFormat format;
};

// Null when FFmpeg cannot scale between the two. The J formats (full range) are handed on as their plain twins
// with the range set: the same pixels, without a warning on every call.
SwsContext* make_scaler(PictureFormat source, PictureFormat target);
