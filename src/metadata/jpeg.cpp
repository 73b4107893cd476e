#include "metadata/jpeg.h"

#include <cstring>

#include "base/log.h"

namespace {

// Each step of the walk goes on by at least two bytes only, and a file may be mostly hole. No camera or editor
// writes nearly as many segments.
constexpr int kSegmentLimit = 100000;

constexpr char kXmpSignature[] = "http://ns.adobe.com/xap/1.0/";
constexpr int64_t kXmpSignatureSize = sizeof kXmpSignature;
constexpr int64_t kExifSignatureSize = 6;

// The largest text whose segment, with two filling bytes, fits into 20480 bytes.
constexpr size_t kXmpLimit = 20445;

// What a segment's length, which counts itself, leaves for its payload.
constexpr size_t kPayloadMost = 65533;

constexpr size_t kStartSize = 2;

// Four characters as get_app1_header gives them.
constexpr uint32_t characters(const char* text) {
    uint32_t number = 0;
    for (int i = 3; i >= 0; --i) {
        number = number << 8 | static_cast<uint8_t>(text[i]);
    }
    return number;
}

bool is_start_of_image(const uint8_t* bytes) {
    return bytes[0] == 0xFF && bytes[1] == 0xD8;
}

std::string xmp_payload(const std::string& text) {
    return std::string(kXmpSignature, sizeof kXmpSignature) + text;
}

std::string app1_segment(const std::string& payload) {
    const size_t length = 2 + payload.size();
    return std::string("\xFF\xE1") + static_cast<char>(length >> 8) + static_cast<char>(length) + payload;
}

}  // namespace

_jpeg::_jpeg(const char* path, bool writable) {
    nq360_log(1, "[.jpeg analyze] open stream");
    open(path, writable, "[.jpeg analyze]");
}

_jpeg::~_jpeg() = default;

void _jpeg::close_stream() {
    nq360_log(1, "[.jpeg analyze] close stream");
    close();
}

int _jpeg::get_app1_offset() {
    if (const int result = seek(0); result != 0) {
        return result;
    }
    uint8_t start[2] = {};
    read_some(start, sizeof start);
    if (!is_start_of_image(start)) {
        nq360_log(1, "[.jpeg analyze] start Marker:%x Not Jpeg File", static_cast<unsigned>(start[0] | start[1] << 8));
        return fail(-1, "Not Jpeg File");
    }
    int64_t position = sizeof start;
    for (int i = 0; i < kSegmentLimit; ++i) {
        uint8_t head[4];
        if (!read(head, sizeof head)) {
            return 0;
        }
        position += 2;
        const int64_t next = position + (head[2] << 8 | head[3]);
        // The first byte is not looked at: whatever it is, a length is taken to follow.
        if (head[0] == 0xFF && head[1] == 0xE1) {
            nq360_log(1, "[.jpeg analyze] app1 maker");
            record_app1(position + 2, next);
        } else if (head[0] == 0xFF && head[1] == 0xDA) {
            nq360_log(1, "[.jpeg analyze] end maker");
            return 0;
        }
        if (const int result = seek(next); result != 0) {
            return result;
        }
        position = next;
    }
    return 0;
}

void _jpeg::record_app1(int64_t start, int64_t end) {
    if (app1_first_start == -1) {
        app1_first_start = start;
        app1_first_end = end;
    } else {
        app1_second_start = start;
        app1_second_end = end;
    }
}

int _jpeg::get_app1_header(int64_t position) {
    if (const int result = seek(position); result != 0) {
        return result;
    }
    char bytes[4] = {};
    read_some(bytes, sizeof bytes);
    return static_cast<int>(characters(bytes));
}

int _jpeg::exif_data(uint8_t** out) {
    nq360_log(1, "[.jpeg analyze] exif_data start");
    *out = nullptr;
    exif_length = 0;
    if (const int result = get_app1_offset(); result != 0) {
        return result;
    }
    if (app1_first_start == -1) {
        nq360_log(1, "[.jpeg analyze] APP1(0xFFE1) MAKER not Found");
        return fail(-1, "APP1(0xFFE1) MAKER not Found");
    }
    Segment exif = {-1, -1};
    if (const int result = find_app1(characters("Exif"), kExifSignatureSize, &exif); result != 0) {
        return result;
    }
    if (exif.start == -1) {
        nq360_log(1, "[.jpeg analyze] Exif Not Found");
        return fail(-1, "Exif Not Found");
    }
    const int64_t block = exif.start + kExifSignatureSize;
    exif_length = read_exif(block, exif.end - block);
    *out = exif_buffer;
    nq360_log(1, "[.jpeg analyze] exif_data end ");
    return 0;
}

int _jpeg::xml_data(char** out) {
    *out = nullptr;
    if (const int result = get_app1_offset(); result != 0) {
        return result;
    }
    if (app1_first_start == -1) {
        return fail(-1, "APP1(0xFFE1) MAKER not Found");
    }
    Segment xmp = {-1, -1};
    // A segment too short for the signature is taken as well: what follows it is read, as of a longer one.
    if (const int result = find_app1(characters(kXmpSignature), 0, &xmp); result != 0) {
        return result;
    }
    if (xmp.start == -1) {
        return fail(-1, "XMP Not Found");
    }
    // Deliberate: as many bytes behind the signature as the segment has with it and the signature once more, so
    // up to 58 bytes of the next segment follow the text. Whoever searches it for element names does not mind.
    read_xml(xmp.start + kXmpSignatureSize, xmp.end - xmp.start + kXmpSignatureSize);
    *out = xml_buffer;
    return 0;
}

// The first of the two remembered segments that begins with these characters and has at least that many bytes:
// 0, with `found` unchanged when neither does, or what get_app1_header gave when that is negative.
int _jpeg::find_app1(uint32_t header, int64_t least, Segment* found) {
    for (const Segment& segment :
         {Segment{app1_first_start, app1_first_end}, Segment{app1_second_start, app1_second_end}}) {
        if (segment.start == -1) {
            break;
        }
        const int bytes = get_app1_header(segment.start);
        if (bytes < 0) {
            error_code = bytes;
            return bytes;
        }
        if (static_cast<uint32_t>(bytes) == header && segment.end - segment.start >= least) {
            *found = segment;
            break;
        }
    }
    return 0;
}

void _jpeg::wtire_xmp_data(const char* xmp) {
    if (!stream || !xmp) {
        fail_writing(stream ? "there is no text" : "the file is closed");
    }
    const size_t text_size = std::strlen(xmp);
    require_text_fits(text_size, kXmpLimit);
    require_jpeg();
    // Two zero bytes follow the text.
    insert(kStartSize, app1_segment(xmp_payload(std::string(xmp, text_size + 1) + '\0')));
    flush();
}

void _jpeg::require_jpeg() {
    uint8_t start[kStartSize] = {};
    if (seek(0) != 0 || !read(start, sizeof start) || !is_start_of_image(start)) {
        fail_writing("the file is no JPEG");
    }
}

void _jpeg::insert_metadata(const std::string& exif, const std::string& xmp) {
    if (!stream) {
        fail_writing("the file is closed");
    }
    const std::string exif_payload = std::string("Exif\0", kExifSignatureSize) + exif;
    require_text_fits(exif_payload.size(), kPayloadMost);
    require_text_fits(xmp.size(), kPayloadMost - sizeof kXmpSignature);
    require_jpeg();
    insert(kStartSize, app1_segment(exif_payload) + app1_segment(xmp_payload(xmp)));
    flush();
}
