#include "media/panorama_encoder.h"

#include <utility>

#include "media/libavif.h"
#include "media/scaler.h"

PanoramaEncoder::PanoramaEncoder(const OutputOption& option, std::shared_ptr<const StitchTables> tables,
                                 AVCodecContext* encoder)
    : encoder_(encoder), stitcher_(option, std::move(tables)) {}

// An encoder may keep a frame's memory; then the next panorama gets memory of its own.
bool PanoramaEncoder::prepare_panorama() {
    FramePtr& panorama = panoramas_[stitching_];
    if (panorama && av_frame_is_writable(panorama.get())) {
        return true;
    }
    panorama = make_frame({encoder_->width, encoder_->height, encoder_->pix_fmt}, encoder_->color_range);
    return panorama != nullptr;
}

void PanoramaEncoder::load_and_stitch(int lens, const AVFrame* frame) noexcept {
    try {
        stitcher_.load(lens, frame);
        loaded_[lens] = true;
        if (++lenses_loaded_ == 2 && prepare_panorama()) {
            stitcher_.stitch_chroma(panoramas_[stitching_].get());
            stitcher_.stitch_luma(panoramas_[stitching_].get());
        }
    } catch (...) {
        thrown_[lens] = std::current_exception();
    }
}

int PanoramaEncoder::queue(int64_t pts, bool keep1, bool keep2) {
    for (const std::exception_ptr& thrown : thrown_) {
        if (thrown) {
            std::rethrow_exception(thrown);
        }
    }
    AVFrame* panorama = panoramas_[stitching_].get();
    if (!panorama) {
        return AVERROR(ENOMEM);
    }
    panorama->pts = pts;
    panorama->quality = encoder_->global_quality;  // the encoder of pictures takes it from here
    waiting_ = true;
    stitching_ = 1 - stitching_;
    loaded_[0] = keep1;
    loaded_[1] = keep2;
    lenses_loaded_ = keep1 + keep2;
    return 0;
}

void PanoramaEncoder::encode() noexcept {
    if (waiting_) {
        encode_result_ = encode_video_frame(encoder_, panoramas_[1 - stitching_].get(), encoded_.get());
    }
}

int PanoramaEncoder::take_result() {
    waiting_ = false;
    return encode_result_;
}
