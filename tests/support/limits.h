// Makes writing fail where a test wants it to.
#pragma once

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include "support/child.h"

namespace test_support {

// While it lives, no file of this process grows beyond `bytes`: writing fails as on a full disk, with "File too
// large".
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : previous_signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &previous_);
        rlimit limited = previous_;
        limited.rlim_cur = bytes;
        if (setrlimit(RLIMIT_FSIZE, &limited) != 0) {
            throw std::runtime_error("cannot limit the size of files");
        }
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &previous_);
        std::signal(SIGXFSZ, previous_signal_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

  private:
    rlimit previous_ = {};
    void (*previous_signal_)(int);
};

// Mounts an empty volume of 16 KiB on a folder, in a mount space of this process's own, so that nothing stays mounted:
// for a child process. Throws CannotSetUp.
inline void mount_small_volume(const std::string& folder) {
    const auto require = [](int result, const char* step) {
        if (result != 0) {
            throw CannotSetUp(std::string("no small volume can be mounted: ") + step + ": " + std::strerror(errno));
        }
    };
    require(unshare(CLONE_NEWNS), "a mount space of its own");
    // Fails where "/" is no mount point, as in a chroot.
    require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "keeping it from the others'");
    require(mount("none", folder.c_str(), "tmpfs", 0, "size=16k"), "mounting");
}

}  // namespace test_support
