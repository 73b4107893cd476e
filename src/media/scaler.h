// Frames with memory of their own, and bicubic scalers that know the range of their pictures.
#pragma once

#include "media/ffmpeg_ptr.h"

struct PictureFormat {
    int width;
    int height;
    AVPixelFormat format;
};

// The size and pixel format of a decoded frame.
PictureFormat format_of(const AVFrame* frame);

// A new frame, its pixels not set; null when there is no memory or no such format.
FramePtr make_frame(PictureFormat format, AVColorRange range = AVCOL_RANGE_UNSPECIFIED);

// Null when FFmpeg cannot scale between the two. The J formats (full range) are handed on as their plain twins
// with the range set: the same pixels, without a warning on every call.
SwsContext* make_scaler(PictureFormat source, PictureFormat target);

// Scales a whole frame into one of the sizes and formats that the scaler was made for; FFmpeg's code.
int scale_frame(SwsContext* scaler, const AVFrame* source, AVFrame* target);
