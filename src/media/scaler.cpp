#include "media/scaler.h"

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

SwsContext* make_scaler(PictureFormat source, PictureFormat target) {
    ScalerPtr scaler(sws_alloc_context());
    if (!scaler) {
        return nullptr;
    }
    bool source_full = false;
    bool target_full = false;
    const AVPixelFormat source_format = plain_format(source.format, &source_full);
    const AVPixelFormat target_format = plain_format(target.format, &target_full);
    av_opt_set_int(scaler.get(), "srcw", source.width, 0);
    av_opt_set_int(scaler.get(), "srch", source.height, 0);
    av_opt_set_int(scaler.get(), "src_format", source_format, 0);
    av_opt_set_int(scaler.get(), "src_range", source_full, 0);
    av_opt_set_int(scaler.get(), "dstw", target.width, 0);
    av_opt_set_int(scaler.get(), "dsth", target.height, 0);
    av_opt_set_int(scaler.get(), "dst_format", target_format, 0);
    av_opt_set_int(scaler.get(), "dst_range", target_full, 0);
    av_opt_set_int(scaler.get(), "sws_flags", SWS_BICUBIC, 0);
    return sws_init_context(scaler.get(), nullptr, nullptr) < 0 ? nullptr : scaler.release();
}
