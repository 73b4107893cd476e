// Makes writing fail where a test wants it to.
#pragma once

#include <csignal>
#include <stdexcept>

#include <sys/resource.h>

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

}  // namespace test_support
