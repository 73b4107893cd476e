// Whether an input is there to its end, and how much of it is.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

// The share of a stream's packets that lie within the file, by the file's own index: 1 for a whole movie, and for
// what has no index. FFmpeg reads a movie that was cut off to where it breaks off as if it were whole.
double share_there(const AVFormatContext* input, int stream_index);

// Has the decoder begin each picture with no light and no colour (all bytes 0, a green that no picture has), so that
// rows that it could not decode are known by that.
void blank_before_decoding(AVCodecContext* decoder);

// Rows of such a picture down to the last one that was decoded.
int decoded_rows(const AVFrame* frame);
