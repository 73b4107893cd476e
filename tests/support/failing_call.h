// Takes the place of FFmpeg's functions below in the program that includes this, the library's calls and FFmpeg's own
// included, so that a test can make the n-th call of one fail. For one source of a program.
#pragma once

#include <cerrno>
#include <string>

#include "support/real_function.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
}

namespace test_support {

// While it lives, the call of this function with this number (from 0) fails, as when the function is out of memory.
class FailingCall {
  public:
    explicit FailingCall(const std::string& function, int number = 0) {
        armed() = function;
        left() = number;
    }
    ~FailingCall() { armed().clear(); }
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;

    // Whether there were so many calls.
    bool failed() const { return left() < 0; }

    static bool fails(const char* function) { return armed() == function && left()-- == 0; }

  private:
    static std::string& armed() {
        thread_local std::string function;
        return function;
    }
    static int& left() {
        thread_local int number = 0;
        return number;
    }
};

}  // namespace test_support

extern "C" {

AVStream* avformat_new_stream(AVFormatContext* output, const AVCodec* codec) {
    static const auto real = test_support::real_function(&avformat_new_stream, "avformat_new_stream");
    return test_support::FailingCall::fails("avformat_new_stream") ? nullptr : real(output, codec);
}

int avformat_write_header(AVFormatContext* output, AVDictionary** options) {
    static const auto real = test_support::real_function(&avformat_write_header, "avformat_write_header");
    return test_support::FailingCall::fails("avformat_write_header") ? AVERROR(ENOMEM) : real(output, options);
}

int av_interleaved_write_frame(AVFormatContext* output, AVPacket* packet) {
    static const auto real = test_support::real_function(&av_interleaved_write_frame, "av_interleaved_write_frame");
    return test_support::FailingCall::fails("av_interleaved_write_frame") ? AVERROR(ENOMEM) : real(output, packet);
}

AVFrame* av_frame_alloc() {
    static const auto real = test_support::real_function(&av_frame_alloc, "av_frame_alloc");
    return test_support::FailingCall::fails("av_frame_alloc") ? nullptr : real();
}

SwrContext* swr_alloc() {
    static const auto real = test_support::real_function(&swr_alloc, "swr_alloc");
    return test_support::FailingCall::fails("swr_alloc") ? nullptr : real();
}

AVAudioFifo* av_audio_fifo_alloc(AVSampleFormat format, int channels, int samples) {
    static const auto real = test_support::real_function(&av_audio_fifo_alloc, "av_audio_fifo_alloc");
    return test_support::FailingCall::fails("av_audio_fifo_alloc") ? nullptr : real(format, channels, samples);
}

// Tells of one more than there is.
int av_audio_fifo_size(AVAudioFifo* fifo) {
    static const auto real = test_support::real_function(&av_audio_fifo_size, "av_audio_fifo_size");
    return real(fifo) + (test_support::FailingCall::fails("av_audio_fifo_size") ? 1 : 0);
}

}  // extern "C"
