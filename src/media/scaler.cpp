#include "media/scaler.h"

#include <cstdint>
#include <utility>

extern "C" {
#include <libavutil/opt.h>
}

namespace {

// The format without the range in its name; `full_range` tells what the name said.
AVPixelFormat plain_format(AVPixelFormat format, bool* full_range) {
    *full_range = true;
    switch (format) {
        case AV_PIX_FMT_YUVJ420P:
            return AV_PIX_FMT_YUV420P;
        case AV_PIX_FMT_YUVJ422P:
            return AV_PIX_FMT_YUV422P;
        case AV_PIX_FMT_YUVJ444P:
            return AV_PIX_FMT_YUV444P;
        case AV_PIX_FMT_YUVJ440P:
            return AV_PIX_FMT_YUV440P;
        case AV_PIX_FMT_YUVJ411P:
            return AV_PIX_FMT_YUV411P;
        default:
            *full_range = false;
            return format;
    }
}

}  // namespace

PictureFormat format_of(const AVFrame* frame) {
    return {frame->width, frame->height, static_cast<AVPixelFormat>(frame->format)};
}

FramePtr make_frame(PictureFormat format, AVColorRange range) {
    FramePtr frame(av_frame_alloc());
    if (!frame) {
        return nullptr;
    }
    frame->width = format.width;
    frame->height = format.height;
    frame->format = format.format;
    frame->color_range = range;
    return av_frame_get_buffer(frame.get(), 0) < 0 ? nullptr : std::move(frame);
}

SwsContext* make_scaler(PictureFormat source, PictureFormat target) {
    ScalerPtr scaler(sws_alloc_context());
    if (!scaler) {
        return nullptr;
    }
    bool source_full = false;
    bool target_full = false;
    const AVPixelFormat source_format = plain_format(source.format, &source_full);
    const AVPixelFormat target_format = plain_format(target.format, &target_full);
    const std::pair<const char*, int64_t> options[] = {
        {"srcw", source.width},        {"srch", source.height},    {"src_format", source_format},
        {"src_range", source_full},    {"dstw", target.width},     {"dsth", target.height},
        {"dst_format", target_format}, {"dst_range", target_full}, {"sws_flags", SWS_BICUBIC},
    };
    for (const auto& [name, value] : options) {
        if (av_opt_set_int(scaler.get(), name, value, 0) < 0) {
            return nullptr;  // a size or format out of range would leave the one before
        }
    }
    return sws_init_context(scaler.get(), nullptr, nullptr) < 0 ? nullptr : scaler.release();
}

int scale_frame(SwsContext* scaler, const AVFrame* source, AVFrame* target) {
    return sws_scale(scaler, source->data, source->linesize, 0, source->height, target->data, target->linesize);
}
