#include "media/part_encoder.h"

#include <cstring>
#include <new>
#include <utility>

namespace {

bool has_same_header(const AVCodecContext* a, const AVCodecContext* b) {
    return a->extradata_size == b->extradata_size &&
           (a->extradata_size == 0 ||
            std::memcmp(a->extradata, b->extradata, static_cast<size_t>(a->extradata_size)) == 0);
}

CodecPtr with_settings(const AVCodecContext* like) {
    CodecPtr encoder(avcodec_alloc_context3(like->codec));
    if (!encoder) {
        throw std::bad_alloc();
    }
    encoder->codec_id = like->codec_id;
    encoder->bit_rate = like->bit_rate;
    encoder->width = like->width;
    encoder->height = like->height;
    encoder->time_base = like->time_base;
    encoder->pix_fmt = like->pix_fmt;
    encoder->color_range = like->color_range;
    encoder->flags = like->flags;
    encoder->log_level_offset = like->log_level_offset;
    return encoder;
}

}  // namespace

CodecPtr settings_of(const AVCodecContext* encoder) {
    CodecPtr settings = with_settings(encoder);
    const auto size = static_cast<size_t>(encoder->extradata_size);
    settings->extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!settings->extradata) {
        throw std::bad_alloc();
    }
    if (size > 0) {
        std::memcpy(settings->extradata, encoder->extradata, size);
    }
    settings->extradata_size = encoder->extradata_size;
    return settings;
}

int open_part_encoder(const AVCodecContext* like, CodecPtr* encoder) {
    CodecPtr opened = with_settings(like);
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
