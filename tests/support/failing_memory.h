// Takes the place of the system's allocation in the program that includes this, so that a test can make the n-th
// allocation of the library, of FFmpeg or of OpenCV fail, and count what is allocated. For one source of a program;
// not with sanitizers, which bring an allocation of their own.
#pragma once

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include <link.h>
#include <malloc.h>
#include <opencv2/core.hpp>

#include "support/delete_by_free.h"
#include "support/lasting.h"
#include "support/real_function.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/dict.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);
}

namespace test_support {

// While it lives, the allocation with this number (from 0) fails, or it and all later ones. Counted is what the
// libraries named below ask for, on any thread; not what openh264 2.3 asks for, which forgets memory and reads from
// null when it gets none.
class FailingMemory {
  public:
    explicit FailingMemory(long number, Lasting lasting = Lasting::kOnce) {
        if (ranges_of_libraries() == 0) {
            dl_iterate_phdr(add_library, nullptr);
        }
        from_then_on() = lasting == Lasting::kFromThenOn;
        left() = number;
        armed() = true;
    }
    ~FailingMemory() { armed() = false; }
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    // Whether there were so many allocations.
    bool failed() const { return left() < 0; }

    // Bytes that are allocated, by anybody.
    static long allocated() { return in_use(); }

    // Spares what this thread allocates while it lives.
    class Spared {
      public:
        Spared() { ++spared(); }
        ~Spared() { --spared(); }
        Spared(const Spared&) = delete;
        Spared& operator=(const Spared&) = delete;
    };

    // What the functions below ask.
    static bool fails(const void* caller) {
        if (!armed() || spared() > 0 || !is_in_libraries(caller)) {
            return false;
        }
        const long before = left()--;
        return before == 0 || (before < 0 && from_then_on());
    }
    static void* taken(void* memory) {
        in_use() += static_cast<long>(malloc_usable_size(memory));
        return memory;
    }
    static void resized(size_t before, void* memory) {
        in_use() += static_cast<long>(malloc_usable_size(memory)) - static_cast<long>(before);
    }
    static void given_back(void* memory) { in_use() -= static_cast<long>(malloc_usable_size(memory)); }

  private:
    struct Range {
        uintptr_t begin;
        uintptr_t end;
    };

    static int& spared() {
        thread_local int value = 0;
        return value;
    }
    static std::atomic<bool>& armed() {
        static std::atomic<bool> value{false};
        return value;
    }
    static std::atomic<bool>& from_then_on() {
        static std::atomic<bool> value{false};
        return value;
    }
    static std::atomic<long>& left() {
        static std::atomic<long> value{0};
        return value;
    }
    static std::atomic<long>& in_use() {
        static std::atomic<long> value{0};
        return value;
    }
    static std::array<Range, 16>& ranges() {
        static std::array<Range, 16> value = {};
        return value;
    }
    static size_t& ranges_of_libraries() {
        static size_t value = 0;
        return value;
    }

    static int add_library(dl_phdr_info* info, size_t /*size*/, void* /*nothing*/) {
        // libstdc++ allocates the longer strings of the library.
        static const char* const kNames[] = {"libnq360",       "libavformat",       "libavcodec",
                                             "libavutil",      "libswscale",        "libswresample",
                                             "libopencv_core", "libopencv_imgproc", "libstdc++"};
        for (const char* name : kNames) {
            if (std::strstr(info->dlpi_name, name) && ranges_of_libraries() < ranges().size()) {
                uintptr_t end = 0;
                for (int i = 0; i < info->dlpi_phnum; ++i) {
                    if (info->dlpi_phdr[i].p_type == PT_LOAD) {
                        end = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr + info->dlpi_phdr[i].p_memsz;
                    }
                }
                ranges()[ranges_of_libraries()++] = {info->dlpi_addr, end};
            }
        }
        return 0;
    }

    static bool is_in_libraries(const void* address) {
        const auto number = reinterpret_cast<uintptr_t>(address);
        for (size_t i = 0; i < ranges_of_libraries(); ++i) {
            if (number >= ranges()[i].begin && number < ranges()[i].end) {
                return true;
            }
        }
        return false;
    }
};

}  // namespace test_support

extern "C" {

void* malloc(size_t size) {
    using test_support::FailingMemory;
    if (FailingMemory::fails(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return FailingMemory::taken(__libc_malloc(size));
}

void* calloc(size_t count, size_t size) {
    using test_support::FailingMemory;
    if (FailingMemory::fails(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return FailingMemory::taken(__libc_calloc(count, size));
}

void* realloc(void* memory, size_t size) {
    using test_support::FailingMemory;
    if (FailingMemory::fails(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    const size_t before = malloc_usable_size(memory);
    void* const moved = __libc_realloc(memory, size);
    if (moved || size == 0) {
        FailingMemory::resized(before, moved);
    }
    return moved;
}

int posix_memalign(void** memory, size_t alignment, size_t size) {
    using test_support::FailingMemory;
    if (FailingMemory::fails(__builtin_return_address(0))) {
        return ENOMEM;
    }
    *memory = FailingMemory::taken(__libc_memalign(alignment, size));
    return *memory ? 0 : ENOMEM;
}

void* aligned_alloc(size_t alignment, size_t size) {
    using test_support::FailingMemory;
    if (FailingMemory::fails(__builtin_return_address(0))) {
        errno = ENOMEM;
        return nullptr;
    }
    return FailingMemory::taken(__libc_memalign(alignment, size));
}

void* memalign(size_t alignment, size_t size) {
    return test_support::FailingMemory::taken(__libc_memalign(alignment, size));
}

void free(void* memory) {
    test_support::FailingMemory::given_back(memory);
    __libc_free(memory);
}

}  // extern "C"

// ---- What FFmpeg 7.1 asks for without a look at whether it got it, or without telling: spared ----

extern "C" {

// A file is closed twice without a copy of the list of protocols that it may go on to.
char* av_strdup(const char* text) {
    static const auto real = test_support::real_function(&av_strdup, "av_strdup");
    if (text && std::strcmp(text, "file,crypto,data") == 0) {
        const test_support::FailingMemory::Spared spared;
        return real(text);
    }
    return real(text);
}

// The list of a decoder's bit stream filters is read from null.
char* av_get_token(const char** text, const char* end) {
    static const auto real = test_support::real_function(&av_get_token, "av_get_token");
    const test_support::FailingMemory::Spared spared;
    return real(text, end);
}

// A movie's index stays incomplete.
void* av_fast_realloc(void* memory, unsigned* size, size_t least) {
    static const auto real = test_support::real_function(&av_fast_realloc, "av_fast_realloc");
    const test_support::FailingMemory::Spared spared;
    return real(memory, size, least);
}
int av_reallocp_array(void* memory, size_t count, size_t size) {
    static const auto real = test_support::real_function(&av_reallocp_array, "av_reallocp_array");
    const test_support::FailingMemory::Spared spared;
    return real(memory, count, size);
}

// Options are kept for ever, and the encoder's name is left out of a file.
int av_dict_set(AVDictionary** dictionary, const char* key, const char* value, int flags) {
    static const auto real = test_support::real_function(&av_dict_set, "av_dict_set");
    const test_support::FailingMemory::Spared spared;
    return real(dictionary, key, value, flags);
}

// A stream is looked into without a decoder, and then described with less.
int avformat_find_stream_info(AVFormatContext* input, AVDictionary** options) {
    static const auto real = test_support::real_function(&avformat_find_stream_info, "avformat_find_stream_info");
    const test_support::FailingMemory::Spared spared;
    return real(input, options);
}

// That a codec's defaults are taken is asserted.
int av_opt_set(void* object, const char* name, const char* value, int flags) {
    static const auto real = test_support::real_function(&av_opt_set, "av_opt_set");
    const test_support::FailingMemory::Spared spared;
    return real(object, name, value, flags);
}

// Parts of a movie's description are left out.
int av_write_trailer(AVFormatContext* output) {
    static const auto real = test_support::real_function(&av_write_trailer, "av_write_trailer");
    const test_support::FailingMemory::Spared spared;
    return real(output);
}

// A resampler without a converter divides by zero.
int swr_init(SwrContext* resampler) {
    static const auto real = test_support::real_function(&swr_init, "swr_init");
    const test_support::FailingMemory::Spared spared;
    return real(resampler);
}

}  // extern "C"

// OpenCV 4.6 forgets the pixels of a matrix when it gets nothing to describe them in.
void* operator new(std::size_t size) {
    using test_support::FailingMemory;
    const bool fails = size != sizeof(cv::UMatData) && FailingMemory::fails(__builtin_return_address(0));
    void* const memory = fails ? nullptr : __libc_malloc(size > 0 ? size : 1);
    return memory ? FailingMemory::taken(memory) : throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    using test_support::FailingMemory;
    void* const memory =
        FailingMemory::fails(__builtin_return_address(0)) ? nullptr : __libc_malloc(size > 0 ? size : 1);
    return memory ? FailingMemory::taken(memory) : throw std::bad_alloc();
}
