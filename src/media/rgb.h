// A picture as the pixels that a screen shows.
#pragma once

#include <opencv2/core.hpp>

#include "media/ffmpeg_ptr.h"

// R, G and B, one byte each, of a picture of YUV420P, as decoders of JPEG make them (JFIF): colours by BT.601 in full
// range, chroma interpolated between its samples, which lie in the middle of four pixels. Throws a text when the range
// cannot be changed.
cv::Mat rgb_of(const AVFrame* picture);
