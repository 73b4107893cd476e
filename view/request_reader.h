// One request as it comes in, a few bytes at a time: whether all of it is there, and whether it can ever be.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

class RequestReader {
  public:
    static constexpr size_t kMostLine = 2048;   // bytes of the first line
    static constexpr size_t kMostHead = 8192;   // of the first line and the headers
    static constexpr size_t kMostRange = 100;   // of the range of a file
    static constexpr size_t kMostBody = 65536;  // what can be asked for is a page of settings

    // Takes what came. Nothing more is taken once the request is whole or refused.
    void add(std::string_view bytes);

    // 0: goes on; 200: whole; else the status that refuses it.
    int status() const { return status_; }

    const std::string& text() const { return text_; }

  private:
    void read_head();

    std::string text_;
    size_t whole_size_ = 0;  // 0: the head is not there yet
    int status_ = 0;
};
