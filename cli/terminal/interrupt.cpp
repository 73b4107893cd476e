#include "terminal/interrupt.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

#include "jobs/errors.h"
#include "terminal/console.h"

namespace {

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

// What the handler touches: set up while no job runs, so that it only reads.
volatile sig_atomic_t signals_seen = 0;
volatile sig_atomic_t marker_armed = 0;
volatile sig_atomic_t output_is_begun = 0;
volatile sig_atomic_t message_descriptor = STDERR_FILENO;
char marker_path[PATH_MAX];
char marker_folder[PATH_MAX];
char output_path[PATH_MAX];

void make_marker() {
    const int marker = open(marker_path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (marker >= 0) {
        close(marker);
    }
}

// Nothing of the job is left behind; then the signal takes the process as if it had never been caught.
void end_at_once(int signal) {
    if (marker_armed) {
        if (output_is_begun) {
            unlink(output_path);
        }
        unlink(marker_path);
        rmdir(marker_folder);
    }
    std::signal(signal, SIG_DFL);
    raise(signal);
}

void on_signal(int signal) {
    const int error = errno;
    signals_seen = signals_seen + 1;
    if (signals_seen > 1) {
        end_at_once(signal);
    } else if (marker_armed) {
        constexpr char kText[] = "\nnq360: stopping at the next progress report; Ctrl-C again stops at once\n";
        make_marker();
        const ssize_t written = write(message_descriptor, kText, sizeof(kText) - 1);
        static_cast<void>(written);
    }
    errno = error;
}

void keep_path(const std::string& path, char* kept) {
    if (path.size() >= PATH_MAX) {
        throw CommandError(printable(path) + ": the name is too long");
    }
    std::memcpy(kept, path.c_str(), path.size() + 1);
}

}  // namespace

void watch_interrupts() {
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

CancelMarker::CancelMarker(const std::string& output) {
    std::error_code error;
    const std::filesystem::path parent = std::filesystem::temp_directory_path(error);
    folder_ = (parent / "nq360-XXXXXX").string();
    if (error || !mkdtemp(folder_.data())) {
        throw CommandError("no temporary folder can be made in " + printable(parent.string()) +
                           "; set TMPDIR to a folder that can be written");
    }
    path_ = folder_ + "/cancel";
    keep_path(folder_, marker_folder);
    keep_path(path_, marker_path);
    keep_path(output, output_path);
    message_descriptor = console().quiet() ? -1 : console().descriptor();
    marker_armed = 1;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (interrupted()) {
        make_marker();  // the signal came first
    }
}

CancelMarker::~CancelMarker() {
    marker_armed = 0;
    output_is_begun = 0;
    unlink(path_.c_str());
    rmdir(folder_.c_str());
}

void CancelMarker::output_begun() {
    output_is_begun = 1;
}
