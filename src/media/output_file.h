// The file of an output, and whether all of it was written. FFmpeg's own access to files leaves that open: muxers go
// back to fill in sizes without a look at whether they got there, and those of pictures close without a look at
// anything.
#pragma once

#include <cstdint>

struct AVIOContext;

class OutputFile {
  public:
    OutputFile() = default;
    ~OutputFile() { close(); }
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Makes the file, empty if it was there; 0 or FFmpeg's code.
    int open(const char* path);

    // What a muxer writes to; null when closed.
    AVIOContext* io() const { return io_; }

    // Writes what is still buffered and closes. The code of the first thing that failed since open(), or 0; also
    // when it was closed before.
    int close();

  private:
    static int write(void* file, const uint8_t* bytes, int count);
    static int64_t seek(void* file, int64_t offset, int whence);
    int64_t noted(int64_t result);

    int descriptor_ = -1;
    AVIOContext* io_ = nullptr;
    int error_ = 0;
};
