// A share of a movie: some of its parts, encoded, in a file of our own, on their way from the machine that made them to
// the one that joins all shares. A movie's container would not do: it gives sound back in other packets than were
// written, and forgets in which order sound and pictures came.
//
//   "nq360 share 1\n"                          the format and its version
//   number of texts, then each name and value  the header; numbers have 4 bytes, the highest first, and a text its
//                                              length before it
//   records                                    'P' a picture or 'S' sound, its packet; 'E' ends them
//   CRC-32 of all before                       4 bytes
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include "media/ffmpeg_ptr.h"
#include "media/output_file.h"
#include "media/share_header.h"

// What a share cannot be joined for, in words; `path` is that of the share.
class ShareFault : public std::runtime_error {
  public:
    ShareFault(std::string share, const std::string& why) : std::runtime_error(why), path(std::move(share)) {}

    std::string path;
};

class ShareWriter {
  public:
    ShareWriter() = default;
    ShareWriter(const ShareWriter&) = delete;
    ShareWriter& operator=(const ShareWriter&) = delete;

    // Each: 0 or FFmpeg's code.
    int open(const char* path, const ShareHeader& header);
    int write_picture(AVPacket* packet);
    int write_sound(AVPacket* packet);  // which comes before picture next_picture()
    int close();                        // 0 says that all of it was written

    // The number in the whole movie of the picture that comes next.
    int64_t next_picture() const { return next_picture_; }
    void set_next_picture(int64_t number) { next_picture_ = number; }

  private:
    int write(char kind, const AVPacket* packet);
    void put(const std::string& bytes);
    void put(const uint8_t* bytes, int count);
    void put_number(uint64_t number, size_t size);
    void put_text(const std::string& text);

    OutputFile file_;
    uint32_t crc_ = 0;
    int64_t next_picture_ = 0;
};

struct ShareRecord {
    bool is_sound;
    int64_t picture;  // its own number, or that of the picture that the sound comes before
    PacketPtr packet;
};

// What is damaged, or no share at all, is thrown as a ShareFault.
class ShareReader {
  public:
    explicit ShareReader(const std::string& path);
    ~ShareReader();
    ShareReader(const ShareReader&) = delete;
    ShareReader& operator=(const ShareReader&) = delete;

    const ShareHeader& header() const { return header_; }

    // False at the end, when all was as it was written.
    bool next(ShareRecord* record);

  private:
    void read_header();
    void read_side_data(AVPacket* packet);
    void get(uint8_t* bytes, int64_t count);
    uint64_t get_number(size_t size);
    int get_size(int64_t most);
    std::string get_text();
    ShareFault damaged() const;

    std::string path_;
    AVIOContext* io_ = nullptr;
    uint32_t crc_ = 0;
    ShareHeader header_;
};
