// The marker segments of a JPEG file: hands out the EXIF block and the XMP text, and inserts a new XMP segment.
// Only the first APP1 segment and the last of the others are remembered; both texts are looked for in those two.
#pragma once

#include <cstdint>

#include "metadata/stream.h"

class _jpeg : public MetadataStream {
  public:
    // File positions of the payload of an APP1 segment and of what follows it; -1 when there is none.
    int64_t app1_first_start = -1;
    int64_t app1_first_end = -1;
    int64_t app1_second_start = -1;
    int64_t app1_second_end = -1;
    size_t exif_length = 0;  // bytes of the block that exif_data hands out

    // Opens a regular file. Throws a `const char*` text when that fails.
    _jpeg(const char* path, bool writable);
    ~_jpeg();

    // Closes the stream; the buffers stay. Throws a text when what was written could not be kept.
    void close_stream();

    // Walks the segments and records the APP1 ones, on top of what earlier walks recorded: 0, or negative when
    // the file is no JPEG. Ends at the scan, at the end of the file, or after 100000 segments.
    int get_app1_offset();

    // The four bytes at a position as a little-endian number, so that they compare with characters in file
    // order; bytes behind the end of the file count as 0. Callers take a negative number for a failure. Four bytes
    // whose last is 0x80 or more are such a number and end a search too; deliberate.
    int get_app1_header(int64_t position);

    // 0 and the block behind "Exif" and two zero bytes, `exif_length` bytes of it; else negative, and null.
    int exif_data(uint8_t** out);

    // 0 and the zero-terminated XMP text; else negative, and null. Up to 58 bytes of what follows the segment
    // come with the text.
    int xml_data(char** out);

    // Inserts a segment with this text directly after the start of the image. Throws a text when the file is
    // no JPEG, the text is longer than 20445 bytes, or writing fails.
    void wtire_xmp_data(const char* xmp);

    // Inserts a segment with this EXIF block and one with this XMP packet, in this order, directly after the start of
    // the image. Throws a text as wtire_xmp_data does, and when one of them does not fit into a segment.
    void insert_metadata(const std::string& exif, const std::string& xmp);

  private:
    struct Segment {
        int64_t start;
        int64_t end;
    };

    void require_jpeg();
    void record_app1(int64_t start, int64_t end);
    int find_app1(uint32_t header, int64_t least, Segment* found);
};
