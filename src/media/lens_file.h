// One lens's picture or movie, opened to look at single frames of it.
#pragma once

#include <stdexcept>
#include <string>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"

// A file that cannot be opened; the text is FFmpeg's or the library's own.
class UnreadableFile : public std::runtime_error {
  public:
    UnreadableFile(int code, const std::string& text) : std::runtime_error(text), code_(code) {}

    // FFmpeg's.
    int code() const { return code_; }

  private:
    int code_;
};

class LensFile {
  public:
    // Throws UnreadableFile.
    explicit LensFile(const char* path);

    // Whether it has one frame, whatever the time.
    bool is_still() const { return media_.is_still[0]; }

    // Of the movie; negative when the file does not tell. Seconds.
    double duration() const { return media_.duration; }

    // The first frame at or after `seconds`, or a still's only one; 4:2:2 as 4:2:0, other formats as they are. Null
    // when the movie ends before, or nothing can be decoded: what is damaged is passed over. Throws UnreadableFile when
    // the file cannot be read any more.
    FramePtr frame_at(double seconds);

  private:
    void open();
    void seek(double seconds);
    bool read_to(double seconds, AVFrame* frame);
    bool drain_to(double seconds, AVFrame* frame);
    bool decode(const AVPacket& packet, double seconds, AVFrame* frame, bool* got_frame);

    std::string path_;
    libavIF media_;
    bool is_unread_ = false;
};
