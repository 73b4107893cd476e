// Owners for FFmpeg's objects inside functions, the names files go by, how loud codecs are, and errors in words.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <new>
#include <string>
#include <utility>

struct FFmpegDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
    void operator()(AVCodecContext* codec) const { avcodec_free_context(&codec); }
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
};

using FramePtr = std::unique_ptr<AVFrame, FFmpegDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, FFmpegDeleter>;
using InputPtr = std::unique_ptr<AVFormatContext, FFmpegDeleter>;
using CodecPtr = std::unique_ptr<AVCodecContext, FFmpegDeleter>;
using ScalerPtr = std::unique_ptr<SwsContext, FFmpegDeleter>;

// For members and helpers that have no other way to tell that there is no memory.
inline PacketPtr new_packet() {
    PacketPtr packet(av_packet_alloc());
    return packet ? std::move(packet) : throw std::bad_alloc();
}
inline FramePtr new_frame() {
    FramePtr frame(av_frame_alloc());
    return frame ? std::move(frame) : throw std::bad_alloc();
}

// Added to the level of a codec's messages: its warnings on ordinary files stay silent, its errors do not.
constexpr int kErrorsOnly = AV_LOG_INFO - AV_LOG_ERROR;

// A path as a name that FFmpeg takes for nothing but a file: without the protocol, "a:b.mov" is an address.
inline std::string file_url(const char* path) {
    return std::string("file:") + path;
}

inline std::string error_words(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = "";
    av_strerror(code, text, sizeof(text));
    return text;
}
