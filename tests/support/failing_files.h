// Takes the place of the system's file functions in the program that includes this, the library's and FFmpeg's calls
// included, so that a test can make the n-th opening, reading, writing, seeking or closing fail. For one source of a
// program.
#pragma once

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/lasting.h"
#include "support/real_function.h"

namespace test_support {

enum class FileStep { kOpen, kRead, kWrite, kSeek, kClose };

inline std::ostream& operator<<(std::ostream& out, FileStep step) {
    static const char* const kNames[] = {"open", "read", "write", "seek", "close"};
    return out << kNames[static_cast<int>(step)];
}

// While it lives, this step with this number (from 0) fails, of those on files whose path begins with `folder`; or
// it and all later ones. Writing fails as on a full disk, anything else as on a broken one. What a failing close
// should have kept is lost: the file ends half-way.
class FailingFiles {
  public:
    FailingFiles(const std::string& folder, FileStep step, long number, Lasting lasting = Lasting::kOnce)
        : step_(step), lasting_(lasting), folder_(folder), left_(number) {
        current() = this;
    }
    ~FailingFiles() { current() = nullptr; }
    FailingFiles(const FailingFiles&) = delete;
    FailingFiles& operator=(const FailingFiles&) = delete;

    // Whether there were so many steps.
    bool failed() const { return left_ < 0; }

    // What the functions below ask.
    static bool fails_at(FileStep step, int descriptor) {
        return current() && is_watched(descriptor) && current()->is_due(step);
    }
    static bool fails_at_open(const char* path) { return watches(path) && current()->is_due(FileStep::kOpen); }
    static void opened(int descriptor, const char* path) { set_watched(descriptor, watches(path)); }
    static void closed(int descriptor) { set_watched(descriptor, false); }

  private:
    static constexpr int kMostDescriptors = 1024;

    static FailingFiles*& current() {
        static FailingFiles* plan = nullptr;
        return plan;
    }
    static std::array<std::atomic<bool>, kMostDescriptors>& watched() {
        static std::array<std::atomic<bool>, kMostDescriptors> flags = {};
        return flags;
    }
    static bool watches(const char* path) {
        return current() && std::strncmp(path, current()->folder_.c_str(), current()->folder_.size()) == 0;
    }
    static bool is_watched(int descriptor) {
        return descriptor >= 0 && descriptor < kMostDescriptors && watched()[static_cast<size_t>(descriptor)];
    }
    static void set_watched(int descriptor, bool value) {
        if (descriptor >= 0 && descriptor < kMostDescriptors) {
            watched()[static_cast<size_t>(descriptor)] = value;
        }
    }
    bool is_due(FileStep step) {
        if (step != step_) {
            return false;
        }
        const long left = left_--;
        return left == 0 || (left < 0 && lasting_ == Lasting::kFromThenOn);
    }

    const FileStep step_;
    const Lasting lasting_;
    const std::string folder_;
    std::atomic<long> left_;
};

namespace failing_files_detail {

template <typename Result>
Result failure(int error, Result result) {
    errno = error;
    return result;
}

inline bool is_written(int descriptor) {
    return (fcntl(descriptor, F_GETFL) & O_ACCMODE) != O_RDONLY;
}

inline void lose_half(int descriptor) {
    struct stat status;
    if (is_written(descriptor) && fstat(descriptor, &status) == 0) {
        const int ignored = ftruncate(descriptor, status.st_size / 2);
        (void)ignored;
    }
}

}  // namespace failing_files_detail
}  // namespace test_support

extern "C" {

int open64(const char* path, int flags, ...) {
    using namespace test_support;
    if (FailingFiles::fails_at_open(path)) {
        return failing_files_detail::failure(EIO, -1);
    }
    mode_t mode = 0;
    if (flags & O_CREAT) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    static const auto real = real_function(&open64, "open64");
    const int descriptor = real(path, flags, mode);
    FailingFiles::opened(descriptor, path);
    return descriptor;
}

ssize_t read(int descriptor, void* bytes, size_t count) {
    using namespace test_support;
    if (FailingFiles::fails_at(FileStep::kRead, descriptor)) {
        return failing_files_detail::failure(EIO, ssize_t{-1});
    }
    static const auto real = real_function(&read, "read");
    return real(descriptor, bytes, count);
}

ssize_t write(int descriptor, const void* bytes, size_t count) {
    using namespace test_support;
    if (FailingFiles::fails_at(FileStep::kWrite, descriptor)) {
        return failing_files_detail::failure(ENOSPC, ssize_t{-1});
    }
    static const auto real = real_function(&write, "write");
    return real(descriptor, bytes, count);
}

off64_t lseek64(int descriptor, off64_t offset, int whence) noexcept {
    using namespace test_support;
    static const auto real = real_function(&lseek64, "lseek64");
    // To go where the file stands is how FFmpeg asks whether it is a pipe.
    const bool stays = whence == SEEK_SET && real(descriptor, 0, SEEK_CUR) == offset;
    if (!stays && FailingFiles::fails_at(FileStep::kSeek, descriptor)) {
        return failing_files_detail::failure(EIO, off64_t{-1});
    }
    return real(descriptor, offset, whence);
}

int close(int descriptor) {
    using namespace test_support;
    const bool fails = FailingFiles::fails_at(FileStep::kClose, descriptor);
    if (fails) {
        failing_files_detail::lose_half(descriptor);
    }
    FailingFiles::closed(descriptor);
    static const auto real = real_function(&close, "close");
    const int result = real(descriptor);
    return fails ? failing_files_detail::failure(EIO, -1) : result;
}

std::FILE* fdopen(int descriptor, const char* mode) noexcept {
    using namespace test_support;
    if (FailingFiles::fails_at(FileStep::kOpen, descriptor)) {
        return failing_files_detail::failure(EIO, static_cast<std::FILE*>(nullptr));
    }
    static const auto real = real_function(&fdopen, "fdopen");
    return real(descriptor, mode);
}

size_t fread(void* bytes, size_t size, size_t count, std::FILE* file) {
    using namespace test_support;
    if (FailingFiles::fails_at(FileStep::kRead, fileno(file))) {
        constexpr int kErrorSeen = 0x20;  // the C library's flag behind ferror
        file->_flags |= kErrorSeen;
        return failing_files_detail::failure(EIO, size_t{0});
    }
    static const auto real = real_function(&fread, "fread");
    return real(bytes, size, count, file);
}

size_t fwrite(const void* bytes, size_t size, size_t count, std::FILE* file) {
    using namespace test_support;
    if (FailingFiles::fails_at(FileStep::kWrite, fileno(file))) {
        return failing_files_detail::failure(ENOSPC, size_t{0});
    }
    static const auto real = real_function(&fwrite, "fwrite");
    return real(bytes, size, count, file);
}

int fflush(std::FILE* file) {
    using namespace test_support;
    if (file && FailingFiles::fails_at(FileStep::kWrite, fileno(file))) {
        return failing_files_detail::failure(ENOSPC, EOF);
    }
    static const auto real = real_function(&fflush, "fflush");
    return real(file);
}

int fseeko64(std::FILE* file, off64_t offset, int whence) {
    using namespace test_support;
    if (FailingFiles::fails_at(FileStep::kSeek, fileno(file))) {
        return failing_files_detail::failure(EIO, -1);
    }
    static const auto real = real_function(&fseeko64, "fseeko64");
    return real(file, offset, whence);
}

int fclose(std::FILE* file) {
    using namespace test_support;
    const int descriptor = fileno(file);
    const bool fails = FailingFiles::fails_at(FileStep::kClose, descriptor);
    if (fails) {
        std::fflush(file);
        failing_files_detail::lose_half(descriptor);
    }
    FailingFiles::closed(descriptor);
    static const auto real = real_function(&fclose, "fclose");
    const int result = real(file);
    return fails ? failing_files_detail::failure(EIO, EOF) : result;
}

}  // extern "C"
