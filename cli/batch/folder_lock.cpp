#include "batch/folder_lock.h"

#include <array>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "batch/file_state.h"
#include "batch/journal.h"
#include "jobs/errors.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

constexpr int kTries = 20;  // others may take and release the lock between two looks

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string host_name() {
    std::array<char, 256> name = {};
    return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

// Two of the same text see the same processes: neither a host's name nor a process's number tells that, as containers
// may share the one and number their processes alike.
std::string machine() {
    std::error_code unknown;
    std::string boot = contents("/proc/sys/kernel/random/boot_id");
    boot.erase(boot.find_last_not_of('\n') + 1);
    return boot + " " + fs::read_symlink("/proc/self/ns/pid", unknown).string();
}

// When the process began, in ticks since the machine did; empty of one that is no more (proc(5), /proc/pid/stat).
std::string start_of(int64_t process) {
    const std::string text = contents("/proc/" + std::to_string(process) + "/stat");
    const size_t name_end = text.rfind(')');
    if (name_end == std::string::npos) {
        return "";
    }
    std::istringstream fields(text.substr(name_end + 1));
    std::string state;
    std::string word;
    fields >> state;
    constexpr int kStart = 19;  // fields behind the state
    for (int i = 0; i < kStart; ++i) {
        fields >> word;
    }
    const bool is_over = !fields || state == "Z" || state == "X";
    return is_over ? "" : word;
}

std::string random_id() {
    std::random_device random;
    char text[24];
    std::snprintf(text, sizeof(text), "%08x%08x", random(), random());
    return text;
}

Json read_owner(const std::string& path) {
    const Json owner = Json::parse(contents(path), nullptr, false);
    return owner.is_object() ? owner : Json::object();
}

[[noreturn]] void fail(const std::string& path, int error) {
    throw CommandError(printable(path) + ": cannot be written (" + std::strerror(error) + ")");
}

// A new file of this content.
int create(const std::string& path, const std::string& text) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file < 0) {
        return -1;
    }
    if (write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size()) || fsync(file) != 0) {
        const int error = errno;
        close(file);
        unlink(path.c_str());
        fail(path, error);
    }
    return file;
}

std::string busy_text(const std::string& folder, const std::string& lock, const Json& owner, LockTimes times) {
    const std::string who = owner.empty() ? "another run"
                                          : "a run on " + printable(text_of(owner, "host")) + " (process " +
                                                std::to_string(number_of(owner, "process")) + ")";
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(times.stale_after).count();
    return printable(folder) + ": " + who + " works there; wait for its end. Where its machine is gone, its lock, " +
           printable(lock) + ", counts for nothing " + std::to_string(seconds) + " seconds after its last sign of life";
}

}  // namespace

FolderLock::FolderLock(const std::string& folder, LockTimes times)
    : folder_(folder), path_((fs::path(folder) / kNotesFolder / "lock").string()), id_(random_id()), times_(times) {
    std::error_code error;
    fs::create_directories(fs::path(path_).parent_path(), error);
    if (error) {
        throw CommandError(printable(folder) + ": the folder cannot be made (" + error.message() + ")");
    }
    for (int tries = 0; !take(); ++tries) {
        if (tries == kTries) {
            throw CommandError(busy_text(folder_, path_, {}, times_));
        }
        give_way_or_remove_stale();
    }
    toucher_ = std::thread([this] { touch_regularly(); });
}

FolderLock::~FolderLock() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ends_ = true;
    }
    ends_changed_.notify_all();
    toucher_.join();
    if (holds()) {
        unlink(path_.c_str());
    }
    close(file_);
}

bool FolderLock::holds() const {
    return text_of(read_owner(path_), "id") == id_;
}

// Whether there was none.
bool FolderLock::take() {
    const Json owner = {{"id", id_},
                        {"host", host_name()},
                        {"process", getpid()},
                        {"started", start_of(getpid())},
                        {"machine", machine()}};
    const std::string own = path_ + "-" + id_;
    const int file = create(own, json_line(owner));
    if (file < 0) {
        fail(own, errno);
    }
    // The answer to a link may be lost on its way from a file server: the number of names tells (open(2), O_EXCL).
    struct stat status = {};
    const bool linked = link(own.c_str(), path_.c_str()) == 0;
    const int error = errno;
    const bool is_ours = linked || (fstat(file, &status) == 0 && status.st_nlink == 2);
    unlink(own.c_str());
    if (is_ours) {
        file_ = file;
        return true;
    }
    close(file);
    if (error == EEXIST) {
        return false;
    }
    file_ = create(path_, json_line(owner));  // no hard links here
    if (file_ < 0 && errno != EEXIST) {
        fail(path_, errno);
    }
    return file_ >= 0;
}

// Throws when the lock is somebody's. Of several who remove a stale one, one renames it; whoever renames a newer one so
// puts it back.
void FolderLock::give_way_or_remove_stale() {
    const Json owner = read_owner(path_);
    if (!fs::exists(path_)) {
        return;
    }
    if (!is_stale(owner)) {
        throw CommandError(busy_text(folder_, path_, owner, times_));
    }
    const std::string aside = path_ + "-stale-" + id_;
    if (std::rename(path_.c_str(), aside.c_str()) != 0) {
        return;
    }
    if (read_owner(aside) != owner && link(aside.c_str(), path_.c_str()) != 0 && errno != EEXIST) {
        std::rename(aside.c_str(), path_.c_str());
        return;
    }
    unlink(aside.c_str());
}

bool FolderLock::is_stale(const Json& owner) const {
    const std::string started = text_of(owner, "started");
    if (text_of(owner, "machine") == machine() && !started.empty()) {
        return start_of(number_of(owner, "process")) != started;
    }
    // What is written now has the time of the file server's clock.
    const std::string probe = path_ + "-probe-" + id_;
    const int file = create(probe, "\n");
    if (file < 0) {
        fail(probe, errno);
    }
    close(file);
    const auto now = state_of_file(probe);
    const auto touched = state_of_file(path_);
    unlink(probe.c_str());
    return now && touched && std::chrono::nanoseconds(now->modified - touched->modified) > times_.stale_after;
}

void FolderLock::touch_regularly() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ends_changed_.wait_for(lock, times_.touched_every, [this] { return ends_; })) {
        futimens(file_, nullptr);
    }
}
