// The few values that the analysis needs out of a block of camera metadata: a big-endian TIFF structure (the
// EXIF segment of a JPEG) or the camera's own block of a movie, which has the same directories behind another
// header.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// One decoded directory entry. A directory is read into one record: an entry sets the value of its own type
// alone, and the other values stay what earlier entries left there.
struct _line {
    uint16_t tag = 0;
    uint16_t type = 0;
    uint32_t count = 0;
    uint8_t byte_value = 0;
    uint32_t ascii_offset = 0;
    uint16_t short_value = 0;
    uint32_t long_value = 0;
    float rational_value = 0;
    uint32_t undefined_offset = 0;
    int16_t sshort_value = 0;
    int32_t slong_value = 0;
};

// Whose blocks are read.
enum class ExifDialect {
    kCamera,  // big-endian numbers, and every text at an offset: so the camera writes it
    kAny,     // little-endian numbers too, and texts of up to four bytes in their entries, as TIFF has them
};

class _exif {
  public:
    // The texts are zero-terminated and belong to the object; null until found. Numbers are -1 until found.
    char* maker = nullptr;
    char* model = nullptr;
    int32_t orientation = -1;
    char* datetime = nullptr;
    int32_t capture_mode = -1;
    int32_t tag_4003 = -1;
    int32_t tag_4034 = -1;
    int64_t multi_capture = -1;
    int32_t camera_orientation = -1;
    bool is_mkri = false;
    bool is_tiff = false;  // of whichever byte order
    bool has_makernote = false;
    const uint8_t* data = nullptr;  // borrowed; must outlive the parsing, not the object's texts
    int32_t start = 0;              // offset of the first directory
    size_t length = 0;              // bytes at `data`

    // Parses the block at once. It may be null; bytes past `length` are never read, whatever the offsets say.
    _exif(const uint8_t* block, size_t block_length, ExifDialect dialect = ExifDialect::kCamera);
    ~_exif();
    _exif(const _exif&) = delete;
    _exif& operator=(const _exif&) = delete;

    // The steps of parsing. Offsets count from the first byte of the block.

    // Recognises the block by its first four bytes: 0, or -1 for an unknown header.
    int header();
    // Sets `start`: 0, or -1 when the block ends before the number.
    int start_offset();
    // Reads a directory and those that it leads to: 0. Leaves out what is not inside the block, directories
    // that lead back to themselves or nest deeper than 64, and all that is left once several times the block's
    // size was read.
    int read_block(int offset);
    // Decodes one entry: 0, or -1 with `out` unchanged when it is not wholly inside the block.
    int read_line(int offset, _line* out);
    // Takes the entry's value into its field, or follows it: 0.
    int import_line(_line entry);
    // Reads a maker note: 0, or -1 when the camera's signature is not there.
    int read_makertag(int offset);

    // Whether the supported camera shot this file in one of its 360-degree modes.
    bool isTarget();

  private:
    bool holds(int64_t offset, uint64_t size) const;
    bool holds_text(int64_t offset, uint32_t count) const;
    bool is_open(int directory) const;
    bool spend(uint64_t bytes);
    uint16_t read16(int64_t offset) const;
    uint32_t read32(int64_t offset) const;
    void read_value(int64_t offset, _line* out) const;
    void import_text(const _line& entry, std::unique_ptr<char[]>* owner, char** field);

    ExifDialect dialect_;
    bool little_endian_ = false;
    std::unique_ptr<char[]> maker_text_;
    std::unique_ptr<char[]> model_text_;
    std::unique_ptr<char[]> datetime_text_;
    std::vector<int> open_directories_;  // offsets of those being read, outermost first
    uint64_t budget_ = 0;                // bytes that may still be read
};
