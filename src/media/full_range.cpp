#include "media/full_range.h"

#include <new>
#include <stdexcept>

#include "media/scaler.h"

FramePtr in_full_range(const AVFrame* picture) {
    if (picture->color_range == AVCOL_RANGE_JPEG) {
        FramePtr same(av_frame_clone(picture));
        return same ? std::move(same) : throw std::bad_alloc();
    }
    const PictureFormat full = {picture->width, picture->height, AV_PIX_FMT_YUVJ420P};
    const ScalerPtr scaler(make_scaler({picture->width, picture->height, AV_PIX_FMT_YUV420P}, full));
    FramePtr scaled = make_frame(full, AVCOL_RANGE_JPEG);
    if (!scaled) {
        throw std::bad_alloc();
    }
    if (!scaler || scale_frame(scaler.get(), picture, scaled.get()) < 0) {
        throw std::runtime_error("FFmpeg cannot bring this picture to full range");
    }
    return scaled;
}

bool has_full_range(const AVFrame* frame) {
    return frame->color_range == AVCOL_RANGE_JPEG || frame->format == AV_PIX_FMT_YUVJ420P ||
           frame->format == AV_PIX_FMT_YUVJ422P;
}
