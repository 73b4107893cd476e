#include "metadata/jpeg_segments.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include <sys/types.h>

namespace {

constexpr int kStartOfImage = 0xD8;
constexpr int kEndOfImage = 0xD9;
constexpr int kStartOfScan = 0xDA;

// Far beyond what cameras and editors write: a file may be mostly hole.
constexpr int kSegmentLimit = 100000;
constexpr int kFillerLimit = 1 << 20;
constexpr size_t kScanLimit = size_t{1} << 31;  // more is no picture: FFmpeg counts its bytes in an int

bool has_length(int marker) {
    constexpr int kFirstRestart = 0xD0;
    return marker < kFirstRestart || marker > kEndOfImage;
}

// Baseline, extended and progressive.
bool begins_usual_frame(int marker) {
    return marker >= 0xC0 && marker <= 0xC2;
}

// The next marker, whatever lies before it; negative when there is none.
int next_marker(FILE* file) {
    int before = 0;
    for (int i = 0; i < kFillerLimit; ++i) {
        const int byte = std::getc(file);
        if (byte == EOF || (before == 0xFF && byte >= 0xC0 && byte < 0xFF)) {
            return byte;
        }
        before = byte;
    }
    return EOF;
}

// Two bytes; negative at the end of the file.
int next_number(FILE* file) {
    const int high = std::getc(file);
    const int low = std::getc(file);
    return low == EOF ? EOF : high << 8 | low;
}

void read_frame(FILE* file, JpegSegments* segments) {
    const int bits = std::getc(file);
    const int height = next_number(file);
    const int width = next_number(file);
    const bool known = bits == 8 && height > 0 && width > 0;
    segments->width = known ? width : 0;
    segments->height = known ? height : 0;
}

// Segment by segment to the scan's data: whether there is any. Before it there may be other pictures with end markers
// of their own.
bool find_scan(FILE* file, JpegSegments* segments) {
    for (int i = 0; i < kSegmentLimit; ++i) {
        const int marker = next_marker(file);
        if (marker == EOF) {
            return false;
        }
        if (!has_length(marker)) {
            continue;
        }
        const off_t start = ftello(file);
        const int length = next_number(file);
        if (length != EOF && begins_usual_frame(marker)) {
            read_frame(file, segments);
        }
        if (length == EOF || fseeko(file, start + length, SEEK_SET) != 0) {
            return false;
        }
        if (marker == kStartOfScan) {
            return true;
        }
    }
    return false;
}

bool ends_with_marker(FILE* file) {
    const off_t scan = ftello(file);
    const bool ends = fseeko(file, -2, SEEK_END) == 0 && ftello(file) >= scan && std::getc(file) == 0xFF &&
                      std::getc(file) == kEndOfImage;
    return fseeko(file, scan, SEEK_SET) == 0 && ends;
}

// Within the scan's data the marker cannot occur; behind it other programs may have appended theirs.
bool has_end_marker(FILE* file) {
    if (ends_with_marker(file)) {
        return true;
    }
    uint8_t last = 0;
    std::vector<uint8_t> block(1 << 16);
    size_t count = 0;
    for (size_t seen = 0; seen < kScanLimit; seen += count) {
        count = std::fread(block.data(), 1, block.size(), file);
        if (count == 0) {
            break;
        }
        for (size_t i = 0; i < count; ++i) {
            if (last == 0xFF && block[i] == kEndOfImage) {
                return true;
            }
            last = block[i];
        }
    }
    return false;
}

}  // namespace

JpegSegments read_jpeg_segments(const char* path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "rb"), std::fclose);
    JpegSegments segments;
    if (file && next_number(file.get()) == (0xFF << 8 | kStartOfImage)) {
        segments.is_cut_off = !find_scan(file.get(), &segments) || !has_end_marker(file.get());
    }
    return segments;
}
