// Takes the place of FFmpeg's function that opens inputs in the program that includes this, the library's calls
// included, so that a test can make the n-th opening fail. Weak, so that several sources of a program can include it.
#pragma once

#include "support/real_function.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace test_support {

// While it lives, the opening with this number (from 0) fails with "Input/output error".
class FailingOpen {
  public:
    explicit FailingOpen(int number) { countdown() = number; }
    ~FailingOpen() { countdown() = kNever; }
    FailingOpen(const FailingOpen&) = delete;
    FailingOpen& operator=(const FailingOpen&) = delete;

    static bool fails() { return countdown() != kNever && countdown()-- == 0; }

  private:
    static constexpr int kNever = -1000000;
    static int& countdown() {
        static int value = kNever;
        return value;
    }
};

}  // namespace test_support

extern "C" [[gnu::weak]] int avformat_open_input(AVFormatContext** context, const char* url,
                                                 const AVInputFormat* format, AVDictionary** options) {
    if (test_support::FailingOpen::fails()) {
        avformat_free_context(*context);  // as FFmpeg does
        *context = nullptr;
        return AVERROR(EIO);
    }
    static const auto real = test_support::real_function(&avformat_open_input, "avformat_open_input");
    return real(context, url, format, options);
}
