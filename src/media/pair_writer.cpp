#include "media/pair_writer.h"

#include <algorithm>

#include "media/frame_ticks.h"
#include "media/scaler.h"

namespace {

// A movie whose sound stands far from its pictures must not fill the memory with it.
constexpr size_t kMostHeldBytes = size_t{4} << 20;

}  // namespace

PairWriter::PairWriter(libavIF* media, const OutputOption& option, bool many_pairs)
    : media_(media), stitcher_(option, many_pairs) {}

// An encoder may keep a frame's memory; then the next panorama gets memory of its own.
bool PairWriter::prepare_panorama() {
    FramePtr& panorama = panoramas_[stitching_];
    const AVCodecContext* encoder = media_->video_encoder_context;
    if (panorama && av_frame_is_writable(panorama.get())) {
        return true;
    }
    panorama = make_frame({encoder->width, encoder->height, encoder->pix_fmt}, encoder->color_range);
    return panorama != nullptr;
}

void PairWriter::load_and_stitch(int lens, const AVFrame* frame) noexcept {
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

int PairWriter::queue_panorama(bool keep1, bool keep2) {
    for (const std::exception_ptr& thrown : thrown_) {
        if (thrown) {
            std::rethrow_exception(thrown);
        }
    }
    AVFrame* panorama = panoramas_[stitching_].get();
    if (!panorama) {
        return AVERROR(ENOMEM);
    }
    panorama->pts = media_->next_video_pts;
    panorama->quality = media_->video_encoder_context->global_quality;  // the encoder of pictures takes it from here
    media_->next_video_pts += kFrameTicks;
    waiting_ = true;
    stitching_ = 1 - stitching_;
    loaded_[0] = keep1;
    loaded_[1] = keep2;
    lenses_loaded_ = keep1 + keep2;
    return 0;
}

void PairWriter::encode() noexcept {
    if (waiting_) {
        const AVFrame* panorama = panoramas_[1 - stitching_].get();
        encode_result_ = encode_video_frame(media_->video_encoder_context, panorama, encoded_.get());
    }
}

int PairWriter::write() {
    if (!waiting_) {
        return 0;
    }
    waiting_ = false;
    const int written = media_->write_video_packet(encode_result_, encoded_.get());
    if (written < 0) {
        return written;
    }
    std::vector<Sound> held;
    held.swap(held_);
    held_bytes_ = 0;
    for (const Sound& sound : held) {
        const int result = write_sound(sound);
        if (result < 0) {
            return result;
        }
    }
    return 0;
}

int PairWriter::write_sound(const Sound& sound) {
    const int result = media_->wtire_audio2(sound.input, sound.packet.get(), &sound_past_end_,
                                            media_->audio_block_size(), sound.start, sound.end);
    sound_failed_ = result < 0;
    return result;
}

int PairWriter::take_sound(int input, AVPacket* packet, float start, float end, bool* past_end) {
    Sound sound = {input, PacketPtr(av_packet_alloc()), start, end};
    if (!sound.packet) {
        return AVERROR(ENOMEM);
    }
    av_packet_move_ref(sound.packet.get(), packet);
    int result = 0;
    if (!waiting_) {
        result = write_sound(sound);
    } else {
        held_bytes_ += static_cast<size_t>(std::max(sound.packet->size, 0));
        held_.push_back(std::move(sound));
        if (held_bytes_ > kMostHeldBytes) {
            encode();
            result = write();
        }
    }
    *past_end = sound_past_end_ != 0;
    return result;
}
