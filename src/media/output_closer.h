// Releases a job's output on every way out of its writer.
#pragma once

#include "media/libavif.h"

class OutputCloser {
  public:
    explicit OutputCloser(libavIF* media) : media_(media) {}
    ~OutputCloser() { media_->close_output_file(); }
    OutputCloser(const OutputCloser&) = delete;
    OutputCloser& operator=(const OutputCloser&) = delete;

  private:
    libavIF* media_;
};
