// FFmpeg's objects with owners, and its results turned into exceptions.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace sample {

struct FfmpegDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using CodecContext = std::unique_ptr<AVCodecContext, FfmpegDeleter>;
using Frame = std::unique_ptr<AVFrame, FfmpegDeleter>;
using Packet = std::unique_ptr<AVPacket, FfmpegDeleter>;

// Throws with FFmpeg's text when `result` is an error.
inline int check(int result, const std::string& what) {
    if (result < 0) {
        char text[AV_ERROR_MAX_STRING_SIZE] = "";
        av_strerror(result, text, sizeof text);
        throw std::runtime_error(what + ": " + text);
    }
    return result;
}

template <typename Pointer>
Pointer check_made(Pointer pointer, const std::string& what) {
    if (!pointer) {
        throw std::runtime_error(what + ": out of memory");
    }
    return pointer;
}

inline Frame make_frame() {
    return Frame(check_made(av_frame_alloc(), "a frame"));
}

inline Packet make_packet() {
    return Packet(check_made(av_packet_alloc(), "a packet"));
}

inline CodecContext make_context(const AVCodec* codec, const std::string& name) {
    if (!codec) {
        throw std::runtime_error("this FFmpeg has no " + name + "; scripts/deps builds one that has");
    }
    CodecContext context(check_made(avcodec_alloc_context3(codec), name));
    // One thread, and nothing that names a version: the same arguments give the same bytes.
    context->thread_count = 1;
    context->flags |= AV_CODEC_FLAG_BITEXACT;
    return context;
}

}  // namespace sample
