// Files of 4 GiB and more on every machine.
#define _FILE_OFFSET_BITS 64

#include "media/output_file.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

namespace {

constexpr int kBufferSize = 256 << 10;

// What avio_alloc_context takes; before FFmpeg 7 the bytes were not const.
#if LIBAVFORMAT_VERSION_MAJOR >= 61
using WrittenBytes = const uint8_t*;
#else
using WrittenBytes = uint8_t*;
#endif

}  // namespace

int OutputFile::open(const char* path) {
    close();
    error_ = 0;
    auto* buffer = static_cast<uint8_t*>(av_malloc(kBufferSize));
    if (!buffer) {
        return AVERROR(ENOMEM);
    }
    io_ = avio_alloc_context(
        buffer, kBufferSize, 1, this, nullptr,
        [](void* file, WrittenBytes bytes, int count) { return write(file, bytes, count); }, seek);
    if (!io_) {
        av_free(buffer);
        return AVERROR(ENOMEM);
    }
    descriptor_ = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor_ >= 0 && lseek(descriptor_, 0, SEEK_CUR) == 0) {
        return 0;
    }
    const int code = AVERROR(errno);
    if (code == AVERROR(ESPIPE)) {
        io_->seekable = 0;
        return 0;
    }
    close();
    return code;
}

int OutputFile::close() {
    if (!io_) {
        return error_;
    }
    if (descriptor_ >= 0) {
        avio_flush(io_);
        noted(::close(descriptor_));
        descriptor_ = -1;
    }
    av_freep(&io_->buffer);
    avio_context_free(&io_);
    return error_;
}

int OutputFile::write(void* file, const uint8_t* bytes, int count) {
    auto* self = static_cast<OutputFile*>(file);
    for (int done = 0; done < count;) {
        const ssize_t written = ::write(self->descriptor_, bytes + done, static_cast<size_t>(count - done));
        if (written == 0) {
            errno = EIO;  // a write of no bytes sets none, and would be tried for ever
        }
        if (written <= 0 && errno != EINTR) {
            return static_cast<int>(self->noted(-1));
        }
        done += written > 0 ? static_cast<int>(written) : 0;
    }
    return count;
}

int64_t OutputFile::seek(void* file, int64_t offset, int whence) {
    auto* self = static_cast<OutputFile*>(file);
    if (whence == AVSEEK_SIZE) {
        struct stat status;
        return fstat(self->descriptor_, &status) == 0 ? status.st_size : AVERROR(errno);
    }
    return self->noted(lseek(self->descriptor_, offset, whence & ~AVSEEK_FORCE));
}

// The result of a system call as FFmpeg expects it.
int64_t OutputFile::noted(int64_t result) {
    if (result >= 0) {
        return result;
    }
    const int code = AVERROR(errno);
    error_ = error_ < 0 ? error_ : code;
    return code;
}
