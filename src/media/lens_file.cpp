#include "media/lens_file.h"

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <new>

#include "base/saturate.h"
#include "media/chroma_format.h"
#include "media/full_range.h"
#include "media/scaler.h"

namespace {

// A frame this much before the time asked for still is the one that was meant: times come as decimals, and a frame's is
// a multiple of 1001/30000 s.
constexpr double kTimeMargin = 1e-4;

// The same values, whatever their range.
FramePtr converted_to_420(const AVFrame* frame) {
    const ScalerPtr scaler(make_scaler({frame->width, frame->height, AV_PIX_FMT_YUV422P},
                                       {frame->width, frame->height, AV_PIX_FMT_YUV420P}));
    FramePtr converted = make_frame({frame->width, frame->height, AV_PIX_FMT_YUV420P},
                                    has_full_range(frame) ? AVCOL_RANGE_JPEG : frame->color_range);
    if (!scaler || !converted) {
        throw std::bad_alloc();
    }
    if (scale_frame(scaler.get(), frame, converted.get()) < 0) {
        throw std::runtime_error("FFmpeg cannot convert this 4:2:2 picture");
    }
    return converted;
}

}  // namespace

LensFile::LensFile(const char* path) : path_(path), media_(path_.c_str()) {
    open();
}

void LensFile::open() {
    if (media_.open_input_file(0) != 0) {
        throw UnreadableFile(media_.error_code, media_.error_text);
    }
    is_unread_ = true;
}

// To the last key frame that is not after the time.
void LensFile::seek(double seconds) {
    if (is_still() || seconds <= 0) {
        return;
    }
    AVFormatContext* input = media_.input_format[0];
    const int stream = media_.video_stream_index[0];
    const double ticks = std::floor(seconds / av_q2d(input->streams[stream]->time_base));
    av_seek_frame(input, stream, saturated<int64_t>(ticks), AVSEEK_FLAG_BACKWARD);
    avcodec_flush_buffers(media_.video_decoder[0]);
}

FramePtr LensFile::frame_at(double seconds) {
    if (!is_unread_) {
        open();  // anew: openh264's decoder brings frames that it holds back over a seek
    }
    is_unread_ = false;
    seek(seconds);
    FramePtr frame = new_frame();
    if (!read_to(seconds, frame.get()) && !drain_to(seconds, frame.get())) {
        return nullptr;
    }
    return is_422(frame.get()) ? converted_to_420(frame.get()) : std::move(frame);
}

bool LensFile::read_to(double seconds, AVFrame* frame) {
    const PacketPtr packet = new_packet();
    int result = 0;
    bool found = false;
    while (!found && (result = media_.read_packet(0, packet.get(), {})) >= 0) {
        bool got_frame = false;
        // An empty packet would tell the decoder the end.
        found = packet->size > 0 && decode(*packet, seconds, frame, &got_frame);
        av_packet_unref(packet.get());
    }
    if (result < 0 && result != AVERROR_EOF && result != AVERROR_INVALIDDATA) {
        throw UnreadableFile(result, error_words(result));
    }
    return found;
}

// The decoder may hold frames back until it is told the end.
bool LensFile::drain_to(double seconds, AVFrame* frame) {
    const PacketPtr end = new_packet();
    end->stream_index = media_.video_stream_index[0];
    bool found = false;
    bool got_frame = true;
    while (!found && got_frame) {
        found = decode(*end, seconds, frame, &got_frame);
    }
    return found;
}

bool LensFile::decode(const AVPacket& packet, double seconds, AVFrame* frame, bool* got_frame) {
    int got = 0;
    const int result = media_.decode_packet(0, packet, frame, &got);
    if (result == AVERROR(ENOMEM)) {
        throw std::bad_alloc();  // the next frame would be another one than was asked for
    }
    *got_frame = result >= 0 && got != 0;
    const double time_base = av_q2d(media_.input_format[0]->streams[media_.video_stream_index[0]]->time_base);
    return *got_frame && (is_still() || static_cast<double>(frame->pts) * time_base >= seconds - kTimeMargin);
}
