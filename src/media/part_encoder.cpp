#include "media/part_encoder.h"

#include <cstring>

namespace {

bool has_same_header(const AVCodecContext* a, const AVCodecContext* b) {
    return a->extradata_size == b->extradata_size &&
           (a->extradata_size == 0 ||
            std::memcmp(a->extradata, b->extradata, static_cast<size_t>(a->extradata_size)) == 0);
}

}  // namespace

int open_part_encoder(const AVCodecContext* like, CodecPtr* encoder) {
    CodecPtr opened(avcodec_alloc_context3(like->codec));
    if (!opened) {
        return AVERROR(ENOMEM);
    }
    opened->codec_id = like->codec_id;
    opened->bit_rate = like->bit_rate;
    opened->width = like->width;
    opened->height = like->height;
    opened->time_base = like->time_base;
    opened->pix_fmt = like->pix_fmt;
    opened->color_range = like->color_range;
    opened->flags = like->flags;
    opened->log_level_offset = like->log_level_offset;
    const int result = avcodec_open2(opened.get(), like->codec, nullptr);
    if (result < 0) {
        return result;
    }
    if (!has_same_header(opened.get(), like)) {
        return AVERROR_BUG;
    }
    *encoder = std::move(opened);
    return 0;
}
