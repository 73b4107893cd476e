// The formats of frames that can be stitched: planes of 8 bits whose colours have half the width, and half the height
// or all of it. The J formats are the same with values of the full range.
#pragma once

extern "C" {
#include <libavutil/frame.h>
}

inline bool is_420(const AVFrame* frame) {
    return frame->format == AV_PIX_FMT_YUV420P || frame->format == AV_PIX_FMT_YUVJ420P;
}

inline bool is_422(const AVFrame* frame) {
    return frame->format == AV_PIX_FMT_YUV422P || frame->format == AV_PIX_FMT_YUVJ422P;
}
