// Takes the place of the system's statvfs in the program that includes this, the library's calls included, so
// that a test can say how full a volume is. Weak, so that several sources of a program can include it.
#pragma once

#include <string>

#include <sys/statvfs.h>

#include "support/real_function.h"

namespace test_support {

// While it lives, every volume is as described; the paths asked for are kept.
class FakeVolume {
  public:
    explicit FakeVolume(unsigned long long free_bytes) : FakeVolume(free_bytes, 1) {}
    FakeVolume(unsigned long long blocks, unsigned long block_size) {
        // The fields that must not be asked differ, so that a wrong one is noticed.
        status_.f_bsize = block_size + 7;
        status_.f_frsize = block_size;
        status_.f_blocks = blocks + 3;
        status_.f_bfree = blocks + 2;
        status_.f_bavail = blocks;
        current() = this;
    }
    ~FakeVolume() { current() = nullptr; }
    FakeVolume(const FakeVolume&) = delete;
    FakeVolume& operator=(const FakeVolume&) = delete;

    // From now on the volume cannot be asked.
    void fail() { fails_ = true; }
    const std::string& asked() const { return asked_; }  // the path asked for last

    static FakeVolume*& current() {
        static FakeVolume* volume = nullptr;
        return volume;
    }

    int answer(const char* path, struct statvfs* status) {
        asked_ = path;
        *status = status_;  // also when it fails: nobody may look
        return fails_ ? -1 : 0;
    }

  private:
    struct statvfs status_ = {};
    bool fails_ = false;
    std::string asked_;
};

}  // namespace test_support

extern "C" [[gnu::weak]] int statvfs(const char* path, struct statvfs* status) noexcept {
    using test_support::FakeVolume;
    if (FakeVolume* fake = FakeVolume::current()) {
        return fake->answer(path, status);
    }
    static const auto real = test_support::real_function(&statvfs, "statvfs");
    return real(path, status);
}
