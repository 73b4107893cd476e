#include "media/jpeg_encoder.h"

#include <stdexcept>

#include "media/full_range.h"
#include "media/jpeg_quality.h"

namespace {

constexpr char kCannotEncode[] = "FFmpeg cannot encode this picture as a JPEG";

CodecPtr open_encoder(const AVFrame* picture, int quality) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    CodecPtr encoder(avcodec_alloc_context3(codec));
    if (!encoder) {
        throw std::bad_alloc();
    }
    encoder->width = picture->width;
    encoder->height = picture->height;
    encoder->pix_fmt = AV_PIX_FMT_YUVJ420P;
    encoder->color_range = AVCOL_RANGE_JPEG;
    encoder->time_base = {1, 25};  // none is stored
    encoder->flags |= AV_CODEC_FLAG_QSCALE;
    encoder->global_quality = FF_QP2LAMBDA * jpeg_quantiser(quality);
    encoder->qmin = 1;  // else quantisers end at 2
    encoder->log_level_offset = kErrorsOnly;
    return avcodec_open2(encoder.get(), codec, nullptr) < 0 ? throw std::runtime_error(kCannotEncode)
                                                            : std::move(encoder);
}

}  // namespace

PacketPtr encoded_jpeg(const AVFrame* picture, int quality) {
    const FramePtr full = in_full_range(picture);
    const CodecPtr encoder = open_encoder(picture, quality);
    full->format = AV_PIX_FMT_YUVJ420P;
    full->quality = encoder->global_quality;
    full->pts = 0;
    PacketPtr packet = new_packet();
    if (avcodec_send_frame(encoder.get(), full.get()) < 0 || avcodec_receive_packet(encoder.get(), packet.get()) < 0) {
        throw std::runtime_error(kCannotEncode);
    }
    return packet;
}
