#include "media/pair_writer.h"

#include <algorithm>

#include "media/frame_ticks.h"
#include "media/output_option.h"
#include "media/part_encoder.h"

namespace {

// A movie whose sound stands far from its pictures must not fill the memory with it.
constexpr size_t kMostHeldBytes = size_t{4} << 20;

}  // namespace

PairWriter::PairWriter(libavIF* media, const OutputOption& option, bool many_pairs)
    : media_(media),
      option_(option),
      in_parts_(option.workers != 0 && many_pairs),
      panoramas_(option, std::make_shared<StitchTables>(option, many_pairs), media->video_encoder_context) {}

bool PairWriter::begins_part() const {
    const int64_t pair = media_->next_video_pts / kFrameTicks;
    return in_parts_ && pair > 0 && pair % option_.part_pairs == 0;
}

int PairWriter::queue_panorama(bool keep1, bool keep2) {
    if (begins_part()) {
        const int opened = open_part_encoder(media_->video_encoder_context, &encoder_);
        if (opened < 0) {
            return opened;
        }
        panoramas_.set_encoder(encoder_.get());
    }
    const int queued = panoramas_.queue(media_->next_video_pts, keep1, keep2);
    if (queued < 0) {
        return queued;
    }
    media_->next_video_pts += kFrameTicks;
    if (begins_part()) {
        panoramas_.stitch_anew();
    }
    return 0;
}

int PairWriter::write() {
    if (!panoramas_.is_waiting()) {
        return 0;
    }
    const int written = media_->write_video_packet(panoramas_.take_result(), panoramas_.packet());
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
    if (!panoramas_.is_waiting()) {
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
