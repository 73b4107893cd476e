#include "terminal/interrupt.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <unistd.h>

#include "terminal/console.h"
#include "terminal/stop_sign.h"

namespace {

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

// What the handler touches: set up while no job runs, so that it only reads. The job's thread may be another one.
std::atomic<int> signals_seen = 0;
static_assert(std::atomic<int>::is_always_lock_free, "a handler may touch it");
std::atomic<int> job_runs = 0;
std::atomic<int> job_has_file = 0;
std::atomic<int> message_descriptor = STDERR_FILENO;
char notice[256];
char job_file[PATH_MAX];

const StopSign& stop_sign() {
    static const StopSign sign;
    return sign;
}

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
        stop_sign().raise();
        if (job_runs) {
            const ssize_t written = write(message_descriptor, notice, std::strlen(notice));
            static_cast<void>(written);
        }
    }
    errno = error;
}

}  // namespace

void watch_interrupts() {
    stop_sign();  // made before its handler can be called
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
    return stop_sign().path();
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
