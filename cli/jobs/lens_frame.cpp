#include "jobs/lens_frame.h"

#include "jobs/errors.h"
#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/scaler.h"
#include "projection/soavfunc.h"
#include "terminal/console.h"
#include "terminal/progress.h"

namespace {

// A frame this much before the time asked for still is the one that was meant.
constexpr double kTimeMargin = 1e-4;

// Finds a frame of the one input of `media`.
class FrameFinder {
  public:
    explicit FrameFinder(libavIF* media) : media_(media) {}

    // The frame, or null when the movie ends before.
    FramePtr find(double seconds) {
        const AVStream* stream = media_->input_format[0]->streams[media_->video_stream_index[0]];
        time_base_ = av_q2d(stream->time_base);
        if (!media_->is_still[0] && seconds > 0) {
            av_seek_frame(media_->input_format[0], media_->video_stream_index[0],
                          static_cast<int64_t>(seconds / time_base_), AVSEEK_FLAG_BACKWARD);
            avcodec_flush_buffers(media_->video_decoder[0]);
        }
        wanted_ = media_->is_still[0] ? -1 : seconds - kTimeMargin;
        return read_to_frame() || drain_to_frame() ? std::move(frame_) : nullptr;
    }

  private:
    bool read_to_frame() {
        bool found = false;
        while (!found && media_->read_packet(0, packet_.get(), {}) >= 0) {
            found = decode();
            av_packet_unref(packet_.get());
        }
        return found;
    }

    // The decoder may hold frames back until it is told the end.
    bool drain_to_frame() {
        packet_->stream_index = media_->video_stream_index[0];
        bool found = false;
        do {
            found = decode();
        } while (!found && got_frame_);
        return found;
    }

    bool decode() {
        if (media_->decode_packet(0, *packet_, frame_.get(), &got_frame_) < 0) {
            got_frame_ = 0;
        }
        return got_frame_ && static_cast<double>(frame_->pts) * time_base_ >= wanted_;
    }

    libavIF* media_;
    PacketPtr packet_{new_packet()};
    FramePtr frame_{new_frame()};
    double time_base_ = 0;
    double wanted_ = 0;
    int got_frame_ = 0;
};

// The stitcher takes 4:2:0 alone; the bytes stay as they are.
FramePtr converted_to_420(FramePtr frame) {
    if (frame->format != AV_PIX_FMT_YUV422P && frame->format != AV_PIX_FMT_YUVJ422P) {
        return frame;
    }
    FramePtr converted = new_frame();
    converted->width = frame->width;
    converted->height = frame->height;
    converted->format = AV_PIX_FMT_YUV420P;
    const ScalerPtr scaler(make_scaler({frame->width, frame->height, AV_PIX_FMT_YUV422P},
                                       {frame->width, frame->height, AV_PIX_FMT_YUV420P}));
    if (!scaler || av_frame_get_buffer(converted.get(), 32) < 0) {
        throw std::bad_alloc();
    }
    sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, converted->data, converted->linesize);
    return converted;
}

}  // namespace

ImageFrame read_lens_frame(const std::string& path, double seconds) {
    libavIF media(path.c_str());
    if (media.open_input_file(0) != 0) {
        throw CommandError(printable(path) + ": cannot be read as a picture or movie (" + media.error_text + ")");
    }
    FramePtr frame = FrameFinder(&media).find(seconds);
    if (!frame) {
        throw CommandError(printable(path) + ": no picture can be decoded at " + decimal_text(seconds) + " seconds");
    }
    frame = converted_to_420(std::move(frame));
    if (frame->format != AV_PIX_FMT_YUV420P && frame->format != AV_PIX_FMT_YUVJ420P) {
        throw CommandError(printable(path) +
                           ": is not 4:2:0 or 4:2:2 with 8 bits, the only formats that can be "
                           "stitched");
    }
    return imageframe_from_avframe(frame.get());
}
