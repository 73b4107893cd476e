// Ends a test program that hangs, and says where.
#pragma once

#include <csignal>
#include <cstring>
#include <string>

#include <unistd.h>

namespace test_support {

// While it lives, the program has this long before it is ended as hanging: far more than any machine needs.
class Watchdog {
  public:
    explicit Watchdog(const std::string& doing, unsigned seconds = 300) {
        std::strncpy(text(), (doing + " never ends\n").c_str(), kTextSize - 1);
        std::signal(SIGALRM, bark);
        alarm(seconds);
    }
    ~Watchdog() { alarm(0); }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

  private:
    static constexpr size_t kTextSize = 1000;
    static char* text() {
        static char buffer[kTextSize] = {};
        return buffer;
    }
    static void bark(int) {
        const ssize_t ignored = write(STDERR_FILENO, text(), std::strlen(text()));
        (void)ignored;
        _exit(1);
    }
};

}  // namespace test_support
