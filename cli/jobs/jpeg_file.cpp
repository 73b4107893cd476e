#include "jobs/jpeg_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "jobs/errors.h"
#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/scaler.h"
#include "terminal/console.h"

namespace {

constexpr int kQuantiser = 3;

FramePtr in_full_range(FramePtr frame, bool is_full) {
    frame->color_range = AVCOL_RANGE_JPEG;
    if (is_full) {
        frame->format = AV_PIX_FMT_YUVJ420P;
        return frame;
    }
    FramePtr full = new_frame();
    full->width = frame->width;
    full->height = frame->height;
    full->format = AV_PIX_FMT_YUVJ420P;
    full->color_range = AVCOL_RANGE_JPEG;
    const ScalerPtr scaler(make_scaler({frame->width, frame->height, AV_PIX_FMT_YUV420P},
                                       {frame->width, frame->height, AV_PIX_FMT_YUVJ420P}));
    if (!scaler || av_frame_get_buffer(full.get(), 32) < 0) {
        throw std::bad_alloc();
    }
    sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, full->data, full->linesize);
    return full;
}

PacketPtr encoded(AVFrame* frame) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const CodecPtr encoder(avcodec_alloc_context3(codec));
    PacketPtr packet = new_packet();
    encoder->width = frame->width;
    encoder->height = frame->height;
    encoder->pix_fmt = AV_PIX_FMT_YUVJ420P;
    encoder->color_range = AVCOL_RANGE_JPEG;
    encoder->time_base = {1, 25};
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = kQuantiser * FF_QP2LAMBDA;
    frame->quality = encoder->global_quality;
    frame->pts = 0;
    if (avcodec_open2(encoder.get(), codec, nullptr) < 0 || avcodec_send_frame(encoder.get(), frame) < 0 ||
        avcodec_receive_packet(encoder.get(), packet.get()) < 0) {
        throw CommandError("the picture cannot be encoded as JPEG");
    }
    return packet;
}

}  // namespace

void write_jpeg(const std::string& path, const ImageFrame& picture, bool full_range) {
    FramePtr frame(avframe_from_iamgeframe(picture));
    if (!frame) {
        throw std::bad_alloc();
    }
    frame = in_full_range(std::move(frame), full_range);
    const PacketPtr packet = encoded(frame.get());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    if (!file) {
        throw CommandError(printable(path) + ": cannot be written (" + std::strerror(errno) + ")");
    }
    file.write(reinterpret_cast<const char*>(packet->data), packet->size);
    file.close();
    if (!file) {
        std::remove(path.c_str());
        throw CommandError(printable(path) + ": cannot be written whole; is the volume full?");
    }
}
