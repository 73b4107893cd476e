#include "media/part_input.h"

#include "media/whole.h"

namespace {

// How the units of a movie's pictures are stored: a length of so many bytes, then a header whose type tells whether the
// picture refers to none before it.
struct Units {
    int length_size;
    bool is_hevc;

    bool begin_anew(uint8_t header) const {
        constexpr int kH264Idr = 5;
        constexpr int kHevcIdrWithLeading = 19;
        constexpr int kHevcIdr = 20;
        const int type = is_hevc ? header >> 1 & 0x3F : header & 0x1F;
        return is_hevc ? type == kHevcIdrWithLeading || type == kHevcIdr : type == kH264Idr;
    }
};

bool has_unit_that_begins(const AVPacket* packet, Units units) {
    int at = 0;
    while (at + units.length_size < packet->size) {
        uint32_t length = 0;
        for (int i = 0; i < units.length_size; ++i) {
            length = length << 8 | packet->data[at + i];
        }
        at += units.length_size;
        if (units.begin_anew(packet->data[at])) {
            return true;
        }
        if (length > static_cast<uint32_t>(packet->size - at)) {
            return false;
        }
        at += static_cast<int>(length);
    }
    return false;
}

// A container calls pictures key frames too from which only later ones are whole.
bool can_begin_with(const AVCodecParameters* codec, const AVPacket* packet) {
    constexpr int kAvcLengthSizeAt = 4;
    constexpr int kHevcLengthSizeAt = 21;
    const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec->codec_id);
    if (descriptor && (descriptor->props & AV_CODEC_PROP_INTRA_ONLY)) {
        return true;
    }
    const bool is_hevc = codec->codec_id == AV_CODEC_ID_HEVC;
    const int length_size_at = is_hevc ? kHevcLengthSizeAt : kAvcLengthSizeAt;
    const bool has_units = (is_hevc || codec->codec_id == AV_CODEC_ID_H264) && codec->extradata_size > length_size_at &&
                           codec->extradata[0] == 1;
    return has_units && has_unit_that_begins(packet, {(codec->extradata[length_size_at] & 3) + 1, is_hevc});
}

}  // namespace

PartInput::PartInput(const char* path, const MovieFrames* movie, bool looks_for_missing_parts)
    : media_(path), movie_(movie) {
    media_.looks_for_missing_parts = looks_for_missing_parts;
}

bool PartInput::open(int64_t first) {
    if (media_.open_input_file(0) != 0) {
        return false;
    }
    AVFormatContext* input = media_.input_format[0];
    for (unsigned stream = 0; stream < input->nb_streams; ++stream) {
        if (static_cast<int>(stream) != media_.video_stream_index[0]) {
            input->streams[stream]->discard = AVDISCARD_ALL;
        }
    }
    if (media_.checks_pictures(0)) {
        blank_before_decoding(media_.video_decoder[0]);
    }
    return !movie_ || seek(movie_->key_before(first));
}

bool PartInput::seek(int64_t key) {
    next_ = key;
    must_begin_ = key > 0;
    return key == 0 || av_seek_frame(media_.input_format[0], media_.video_stream_index[0], movie_->time_of(key),
                                     AVSEEK_FLAG_BACKWARD) >= 0;
}

// The next packet, or the end, goes to the decoder.
bool PartInput::send_next() {
    int result = 0;
    do {
        av_packet_unref(packet_.get());
        result = at_end_ ? AVERROR_EOF : media_.read_packet(0, packet_.get(), {true, false, true});
    } while (result >= 0 && (packet_->stream_index != media_.video_stream_index[0] || packet_->size == 0));
    if (result == AVERROR_EOF && !at_end_) {
        at_end_ = true;
        return avcodec_send_packet(media_.video_decoder[0], nullptr) >= 0;
    }
    if (result < 0) {
        return false;
    }
    const AVStream* stream = media_.input_format[0]->streams[media_.video_stream_index[0]];
    if (must_begin_ && !can_begin_with(stream->codecpar, packet_.get())) {
        return false;
    }
    must_begin_ = false;
    return avcodec_send_packet(media_.video_decoder[0], packet_.get()) >= 0;
}

bool PartInput::receive() {
    int result = avcodec_receive_frame(media_.video_decoder[0], frame_.get());
    while (result == AVERROR(EAGAIN) && send_next()) {
        result = avcodec_receive_frame(media_.video_decoder[0], frame_.get());
    }
    return result >= 0 && is_as_planned();
}

bool PartInput::is_as_planned() const {
    if (media_.checks_pictures(0) && decoded_rows(frame_.get()) < frame_->height) {
        return false;
    }
    return !movie_ || (next_ < movie_->count() && frame_->best_effort_timestamp == movie_->time_of(next_));
}

const AVFrame* PartInput::frame(int64_t number) {
    do {
        if (!receive()) {
            return nullptr;
        }
    } while (next_++ < number);
    return frame_.get();
}
