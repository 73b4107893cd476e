// Files of 4 GiB and more on every machine.
#define _FILE_OFFSET_BITS 64

#include "metadata/stream.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/files.h"
#include "base/log.h"

namespace {

constexpr size_t kMoveBlock = size_t{1} << 20;

// Null for anything but a regular file. Looked at before opening, because opening a device can do something,
// and after, because the name may lead elsewhere by then; without waiting, because a pipe would.
FILE* open_regular_file(const char* path, bool writable) {
    if (!isRegularFile(path)) {
        return nullptr;
    }
    const int descriptor = ::open(path, (writable ? O_RDWR : O_RDONLY) | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) {
        return nullptr;
    }
    struct stat status;
    FILE* file = nullptr;
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        file = fdopen(descriptor, writable ? "r+b" : "rb");
    }
    if (!file) {
        ::close(descriptor);
    }
    return file;
}

}  // namespace

void throw_text(const char* format, ...) {
    thread_local char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    throw static_cast<const char*>(text);  // NOLINT(cert-err09-cpp,cert-err61-cpp): what callers catch; it stays valid
}

std::string system_text(int code) {
    char buffer[255] = {};
    return strerror_r(code, buffer, sizeof buffer);
}

void MetadataStream::Closer::operator()(FILE* file) const {
    std::fclose(file);  // NOLINT(cppcoreguidelines-owning-memory): this is the owner's end
}

void MetadataStream::open(const char* path, bool writable, const char* tag) {
    writable_ = writable;
    owned_stream_.reset(open_regular_file(path, writable));
    stream = owned_stream_.get();
    if (!stream) {
        snprintf(error_text, sizeof error_text, "Can't open file %s", path ? path : "");
        error_code = -1;
        nq360_log(3, "%s file open error", tag);
        throw_text("%s", error_text);
    }
}

void MetadataStream::close() {
    stream = nullptr;
    if (owned_stream_ && std::fclose(owned_stream_.release()) != 0 && writable_) {
        fail_writing_system();
    }
}

int MetadataStream::fail(int code, const char* text) {
    error_code = code;
    snprintf(error_text, sizeof error_text, "%s", text);
    return code;
}

int MetadataStream::fail_system(int code) {
    return fail(code, system_text(code).c_str());
}

void MetadataStream::fail_writing(const char* text) {
    fail(-1, (std::string("Can't write metadata: ") + text).c_str());
    throw_text("%s", error_text);
}

void MetadataStream::require_text_fits(size_t text_size, size_t limit) {
    if (text_size > limit) {
        fail_writing(
            ("the text has " + std::to_string(text_size) + " bytes, " + std::to_string(limit) + " fit").c_str());
    }
}

void MetadataStream::fail_writing_system() {
    fail_writing(errno != 0 ? system_text(errno).c_str() : "the file became shorter meanwhile");
}

int MetadataStream::seek(int64_t position) {
    const int result = stream ? fseeko(stream, position, SEEK_SET) : -1;
    if (result != 0) {
        system_failed_ = system_failed_ || errno != EINVAL;  // a broken file's positions may be none
        return fail_system(result);
    }
    return 0;
}

int64_t MetadataStream::size() const {
    struct stat status;
    return stream && fstat(fileno(stream), &status) == 0 ? int64_t{status.st_size} : -1;
}

size_t MetadataStream::read_some(void* out, size_t count) {
    const size_t there = stream ? std::fread(out, 1, count, stream) : 0;
    system_failed_ = system_failed_ || (stream && std::ferror(stream));
    return there;
}

size_t MetadataStream::read_exif(int64_t start, int64_t count) {
    const size_t length = read_payload(start, count, &owned_exif_);
    exif_buffer = owned_exif_.get();
    return length;
}

size_t MetadataStream::read_xml(int64_t start, int64_t count) {
    const size_t length = read_payload(start, count, &owned_xml_);
    xml_buffer = reinterpret_cast<char*>(owned_xml_.get());
    return length;
}

size_t MetadataStream::read_payload(int64_t start, int64_t count, std::unique_ptr<uint8_t[]>* buffer) {
    const int64_t there = std::max(int64_t{0}, std::min(count, size() - start));
    *buffer = std::make_unique<uint8_t[]>(static_cast<size_t>(there) + 1);
    return seek(start) == 0 ? read_some(buffer->get(), static_cast<size_t>(there)) : 0;
}

void MetadataStream::insert(int64_t position, const std::string& bytes) {
    move_up(position, size(), static_cast<int64_t>(bytes.size()));
    if (!overwrite(position, bytes.data(), bytes.size())) {
        fail_writing_system();
    }
}

void MetadataStream::move_up(int64_t from, int64_t to, int64_t by) {
    int64_t rest = by == 0 ? 0 : std::max(int64_t{0}, to - from);
    std::vector<uint8_t> block(static_cast<size_t>(std::min(rest, int64_t{kMoveBlock})));
    while (rest > 0) {
        const size_t count = static_cast<size_t>(std::min(rest, int64_t{kMoveBlock}));
        rest -= static_cast<int64_t>(count);
        move_block(from + rest, count, by, &block);
    }
}

void MetadataStream::move_block(int64_t from, size_t count, int64_t by, std::vector<uint8_t>* block) {
    errno = 0;
    if (fseeko(stream, from, SEEK_SET) != 0 || !read(block->data(), count)) {
        fail_writing_system();
    }
    if (!overwrite(from + by, block->data(), count)) {
        fail_writing_system();
    }
}

bool MetadataStream::overwrite(int64_t position, const void* bytes, size_t count) {
    return fseeko(stream, position, SEEK_SET) == 0 && std::fwrite(bytes, 1, count, stream) == count;
}

void MetadataStream::flush() {
    if (std::fflush(stream) != 0) {
        fail_writing_system();
    }
}
