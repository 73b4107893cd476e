#include "terminal/interrupt.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "terminal/console.h"

namespace {

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

// What the handler touches: set up while no job runs, so that it only reads. The job's thread may be another one.
std::atomic<int> signals_seen = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a handler may touch it");
std::atomic<int> job_runs = 0;
std::atomic<int> job_has_file = 0;
std::atomic<int> message_descriptor = STDERR_FILENO;
volatile sig_atomic_t opened_to_cancel = -1;
volatile sig_atomic_t cancel_descriptor = -1;
char notice[256];
char job_file[PATH_MAX];

// Nothing of the job is left behind; then the signal takes the process as if it had never been caught.
void end_at_once(int signal) {
    if (job_has_file) {
        unlink(job_file);
    }
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void on_signal(int signal) {
    const int error = errno;
    if (++signals_seen > 1) {
        end_at_once(signal);
    } else {
        dup2(opened_to_cancel, cancel_descriptor);
        if (job_runs) {
            const ssize_t written = write(message_descriptor, notice, std::strlen(notice));
            static_cast<void>(written);
        }
    }
    errno = error;
}

// Descriptors are handed out from the lowest, so nothing else gets the last free one.
void choose_cancel_descriptor() {
    constexpr long kUsualMost = 1024;  // a far higher one would cost the system a longer table
    const long most = sysconf(_SC_OPEN_MAX);
    int last = static_cast<int>(most > 0 ? std::min(most, kUsualMost) : kUsualMost) - 1;
    while (last > STDERR_FILENO && fcntl(last, F_GETFD) >= 0) {
        --last;
    }
    opened_to_cancel = open("/dev/null", O_RDONLY | O_CLOEXEC);
    cancel_descriptor = last;
}

}  // namespace

void watch_interrupts() {
    choose_cancel_descriptor();
    struct sigaction action = {};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESTART | SA_NODEFER;
    for (const int signal : kSignals) {
        struct sigaction before = {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
}

bool interrupted() {
    return signals_seen > 0;
}

std::string cancel_path() {
    return "/proc/self/fd/" + std::to_string(cancel_descriptor);
}

Stoppable::Stoppable(const std::string& waits_for) {
    std::snprintf(notice, sizeof(notice), "\nnq360: stopping once %s; Ctrl-C again stops at once\n", waits_for.c_str());
    message_descriptor = console().quiet() ? -1 : console().descriptor();
    job_runs = 1;
}

Stoppable::~Stoppable() {
    job_runs = 0;
    job_has_file = 0;
}

void Stoppable::leaves(const std::string& file) {
    if (file.empty() || file.size() >= sizeof(job_file)) {
        return;
    }
    std::memcpy(job_file, file.c_str(), file.size() + 1);
    job_has_file = 1;
}
