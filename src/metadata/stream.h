// What the readers of container files share: the file behind them, the buffers that they hand out, and how
// they tell failures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

// Throws a text as a `const char*`, kept in storage of the calling thread until it throws the next one: the
// text outlives the object that throws.
[[noreturn]] void throw_text(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The system's text for an error number; for a failing call's own -1 "Unknown error -1".
std::string system_text(int code);

class MetadataStream {
  public:
    int32_t error_code = 0;          // of the last failure
    char error_text[255] = {};       // of the last failure
    FILE* stream = nullptr;          // null when closed
    uint8_t* exif_buffer = nullptr;  // belongs to the object, which keeps it beyond close_stream
    char* xml_buffer = nullptr;      // the same

    MetadataStream(const MetadataStream&) = delete;
    MetadataStream& operator=(const MetadataStream&) = delete;

    // Whether the system could not read or seek, as it can in every file that is only broken.
    bool system_failed() const { return system_failed_; }

  protected:
    // Blocks of metadata are some kilobytes. A file may claim any size, and holes make a claim cheap to back
    // with a file of that size, so nothing above this limit is read or written.
    static constexpr int64_t kPayloadLimit = int64_t{16} << 20;

    MetadataStream() = default;
    ~MetadataStream() = default;

    // Opens a regular file. Anything else (a pipe or a device, which could wait for ever) and any failure is
    // logged after the reader's tag and thrown.
    void open(const char* path, bool writable, const char* tag);
    // Closes the stream if it is open. Throws when what was written could not be kept.
    void close();

    // Sets the last failure and returns its code.
    int fail(int code, const char* text);
    // The same with the system's text for the code.
    int fail_system(int code);
    // Sets the last failure to "Can't write metadata: " and the text, and throws it.
    [[noreturn]] void fail_writing(const char* text);
    // The same with the system's text for errno, which is 0 when the file had fewer bytes than before.
    [[noreturn]] void fail_writing_system();
    void require_text_fits(size_t text_size, size_t limit);

    // 0, or the failing result, which is then the last failure.
    int seek(int64_t position);
    // The file's size, -1 when it cannot be told. What was written counts after the next seek or flush.
    int64_t size() const;
    // Reads up to `count` bytes and returns how many there were.
    size_t read_some(void* out, size_t count);
    // Whether all `count` bytes were there.
    bool read(void* out, size_t count) { return read_some(out, count) == count; }

    // Reads the file's bytes from `start` on, at most `count`, into the buffer handed out. Returns how many
    // there were. Only what the file holds is allocated, and a zero byte behind it.
    size_t read_exif(int64_t start, int64_t count);
    size_t read_xml(int64_t start, int64_t count);

    // Inserts bytes before `position`. What follows moves up in blocks from its end, so that a long tail takes
    // no more memory than a short one. Throws when that fails, and the file is then neither old nor new.
    void insert(int64_t position, const std::string& bytes);
    // Moves the bytes between two positions up, likewise.
    void move_up(int64_t from, int64_t to, int64_t by);
    // Writes bytes over what is at `position`; false, with errno set, when that fails.
    bool overwrite(int64_t position, const void* bytes, size_t count);
    // Hands what was written to the system. Throws when that fails.
    void flush();

  private:
    struct Closer {
        void operator()(FILE* file) const;
    };

    size_t read_payload(int64_t start, int64_t count, std::unique_ptr<uint8_t[]>* buffer);
    void move_block(int64_t from, size_t count, int64_t by, std::vector<uint8_t>* block);

    bool system_failed_ = false;
    std::unique_ptr<FILE, Closer> owned_stream_;
    std::unique_ptr<uint8_t[]> owned_exif_;
    std::unique_ptr<uint8_t[]> owned_xml_;
    bool writable_ = false;
};
