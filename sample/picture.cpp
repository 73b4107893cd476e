#include "sample/picture.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

extern "C" {
#include <libswscale/swscale.h>
}

#include "sample/gray_jpeg.h"
#include "support/temp_dir.h"

namespace sample {
namespace {

using namespace test_support;

AVCodecID codec_of(const Bytes& file, const std::string& path) {
    const auto begins_with = [&](std::string_view signature) {
        return file.size() >= signature.size() && std::equal(signature.begin(), signature.end(), file.begin(),
                                                             [](char a, uint8_t b) { return uint8_t(a) == b; });
    };
    if (begins_with("\x89PNG")) {
        return AV_CODEC_ID_PNG;
    }
    if (begins_with("\xFF\xD8")) {
        return AV_CODEC_ID_MJPEG;
    }
    if (begins_with("P5")) {
        return AV_CODEC_ID_PGM;
    }
    if (begins_with("P6")) {
        return AV_CODEC_ID_PPM;
    }
    throw std::runtime_error(path + ": not a PNG, JPEG, PGM or PPM picture");
}

Frame decode(const Bytes& file, const std::string& path) {
    const AVCodec* codec = avcodec_find_decoder(codec_of(file, path));
    const CodecContext context = make_context(codec, "decoder for " + path);
    check(avcodec_open2(context.get(), codec, nullptr), path);
    const Packet packet = make_packet();
    check(av_new_packet(packet.get(), static_cast<int>(file.size())), path);
    std::memcpy(packet->data, file.data(), file.size());
    check(avcodec_send_packet(context.get(), packet.get()), path);
    check(avcodec_send_packet(context.get(), nullptr), path);
    Frame frame = make_frame();
    check(avcodec_receive_frame(context.get(), frame.get()), path);
    return frame;
}

// The one packet that an encoder makes of one frame.
Bytes encode_one(AVCodecContext* context, const AVFrame* frame) {
    check(avcodec_send_frame(context, frame), "encoding a picture");
    check(avcodec_send_frame(context, nullptr), "encoding a picture");
    const Packet packet = make_packet();
    check(avcodec_receive_packet(context, packet.get()), "encoding a picture");
    return Bytes(packet->data, packet->data + packet->size);
}

}  // namespace

Frame borrow(const Picture& picture, AVPixelFormat format) {
    Frame frame = make_frame();
    frame->format = format;
    frame->width = picture.planes[0].cols;
    frame->height = picture.planes[0].rows;
    for (size_t i = 0; i < picture.planes.size(); ++i) {
        frame->data[i] = picture.planes[i].data;
        frame->linesize[i] = static_cast<int>(picture.planes[i].step);
    }
    return frame;
}

AVPixelFormat full_range_format(Chroma chroma) {
    if (chroma.columns == 1) {
        return AV_PIX_FMT_YUVJ444P;
    }
    return chroma.rows == 1 ? AV_PIX_FMT_YUVJ422P : AV_PIX_FMT_YUVJ420P;
}

Bytes encode_jpeg(const Picture& picture, int quality) {
    if (picture.chroma.none) {
        return encode_gray_jpeg(picture.planes[0], quality);
    }
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const CodecContext context = make_context(codec, "JPEG encoder");
    context->width = picture.planes[0].cols;
    context->height = picture.planes[0].rows;
    context->pix_fmt = full_range_format(picture.chroma);
    context->color_range = AVCOL_RANGE_JPEG;
    context->time_base = {1, 25};
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->global_quality = quality * FF_QP2LAMBDA;
    check(avcodec_open2(context.get(), codec, nullptr), "opening the JPEG encoder");
    const Frame frame = borrow(picture, context->pix_fmt);
    frame->quality = context->global_quality;
    return encode_one(context.get(), frame.get());
}

cv::Mat read_rgb(const std::string& path) {
    const Frame frame = decode(read_file(path), path);
    cv::Mat rgb(frame->height, frame->width, CV_8UC3);
    SwsContext* scaler =
        check_made(sws_getContext(frame->width, frame->height, static_cast<AVPixelFormat>(frame->format), rgb.cols,
                                  rgb.rows, AV_PIX_FMT_RGB24, SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT,
                                  nullptr, nullptr, nullptr),
                   path);
    uint8_t* const data[] = {rgb.data, nullptr, nullptr, nullptr};
    const int step[] = {static_cast<int>(rgb.step), 0, 0, 0};
    sws_scale(scaler, frame->data, frame->linesize, 0, frame->height, data, step);
    sws_freeContext(scaler);
    return rgb;
}

void write_png(const std::string& path, const cv::Mat& picture) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
    const CodecContext context = make_context(codec, "PNG encoder");
    context->width = picture.cols;
    context->height = picture.rows;
    context->pix_fmt = picture.channels() == 1 ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_RGB24;
    context->time_base = {1, 25};
    context->compression_level = 1;
    check(avcodec_open2(context.get(), codec, nullptr), "opening the PNG encoder");
    const Frame frame = make_frame();
    frame->format = context->pix_fmt;
    frame->width = picture.cols;
    frame->height = picture.rows;
    frame->data[0] = picture.data;
    frame->linesize[0] = static_cast<int>(picture.step);
    write_file(path, encode_one(context.get(), frame.get()));
}

}  // namespace sample
