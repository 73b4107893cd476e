#include "batch/folder_lock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "batch/file_state.h"
#include "batch/journal.h"
#include "jobs/errors.h"
#include "jobs/replies.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kName = "lock.";
constexpr const char* kAttempt = "lock-";  // a file that is about to become one
constexpr int kTries = 100;                // others may take and release the lock between two looks
constexpr int kMostWait = 20;              // milliseconds between two

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

Json owner_of(const std::string& text) {
    const Json owner = Json::parse(text, nullptr, false);
    return owner.is_object() ? owner : Json::object();
}

[[noreturn]] void fail(const std::string& path, int error) {
    throw CommandError(printable(path) + ": cannot be written (" + std::strerror(error) + ")");
}

// A new file of this content.
Descriptor create(const std::string& path, const std::string& text) {
    Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (!file) {
        return file;
    }
    if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) || fsync(file.get()) != 0) {
        const int error = errno;
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
    : folder_(folder), notes_((fs::path(folder) / kNotesFolder).string()), id_(random_id()), times_(times) {
    std::error_code error;
    fs::create_directories(notes_, error);
    if (error) {
        throw CommandError(printable(folder) + ": the folder cannot be made (" + error.message() + ")");
    }
    std::mt19937 random(std::random_device{}());
    for (int tries = 0; !take(); ++tries) {
        if (tries == kTries) {
            throw CommandError(busy_text(folder_, notes_, Json::object(), times_));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % kMostWait));
    }
    remove_leftovers();
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
        unlink(path_of(number_).c_str());
    }
}

bool FolderLock::holds() const {
    return text_of(owner_of(contents(path_of(number_))), "id") == id_;
}

std::string FolderLock::path_of(int number) const {
    return notes_ + "/" + kName + std::to_string(number);
}

// Of all locks that stand there.
std::vector<int> FolderLock::numbers() const {
    std::vector<int> found;
    std::error_code error;
    for (fs::directory_iterator entry(notes_, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        const std::string digits = name.rfind(kName, 0) == 0 ? name.substr(std::strlen(kName)) : "";
        if (!digits.empty() && digits.size() < 9 && digits.find_first_not_of("0123456789") == std::string::npos) {
            found.push_back(std::stoi(digits));
        }
    }
    std::sort(found.begin(), found.end());
    return found;
}

FolderLock::Found FolderLock::newest() const {
    const std::vector<int> all = numbers();
    return all.empty() ? Found() : Found{all.back(), contents(path_of(all.back()))};
}

// Whether it is taken; not when others are at it at the same time. Throws when somebody has it.
bool FolderLock::take() {
    const Found before = newest();
    if (before.number >= 0 && !is_stale(before)) {
        throw CommandError(busy_text(folder_, path_of(before.number), owner_of(before.owner), times_));
    }
    const int number = before.number + 1;
    Descriptor file = make(number);
    if (!file) {
        return false;
    }
    const std::vector<int> now = numbers();
    const bool is_highest = !now.empty() && now.back() == number;
    const bool is_as_before = before.number < 0 ? now.size() == 1 : contents(path_of(before.number)) == before.owner;
    if (!is_highest || !is_as_before) {
        unlink(path_of(number).c_str());
        return false;
    }
    for (const int older : now) {
        if (older < number) {
            unlink(path_of(older).c_str());
        }
    }
    number_ = number;
    file_ = std::move(file);
    return true;
}

// The lock of this number, open; none when it is there already.
Descriptor FolderLock::make(int number) const {
    const std::string text = json_line({{"id", id_},
                                        {"host", host_name()},
                                        {"process", getpid()},
                                        {"started", start_of(getpid())},
                                        {"machine", machine()}});
    const std::string path = path_of(number);
    const std::string own = notes_ + "/" + kAttempt + id_;
    Descriptor file = create(own, text);
    if (!file) {
        fail(own, errno);
    }
    // The answer to a link may be lost on its way from a file server: the number of names tells (open(2), O_EXCL).
    struct stat status = {};
    const bool linked = link(own.c_str(), path.c_str()) == 0;
    const bool exists = !linked && errno == EEXIST;
    const bool is_ours = linked || (fstat(file.get(), &status) == 0 && status.st_nlink == 2);
    unlink(own.c_str());
    if (is_ours) {
        return file;
    }
    if (exists) {
        return {};
    }
    Descriptor direct = create(path, text);  // no hard links here
    if (!direct && errno != EEXIST) {
        fail(path, errno);
    }
    return direct;
}

bool FolderLock::is_stale(const Found& lock) const {
    const Json owner = owner_of(lock.owner);
    const std::string started = text_of(owner, "started");
    if (text_of(owner, "machine") == machine() && !started.empty()) {
        return start_of(number_of(owner, "process")) != started;
    }
    // What is written now has the time of the file server's clock.
    const std::string probe = notes_ + "/" + kAttempt + "probe-" + id_;
    if (!create(probe, "\n")) {
        fail(probe, errno);
    }
    const auto now = state_of_file(probe);
    const auto touched = state_of_file(path_of(lock.number));
    unlink(probe.c_str());
    const bool is_gone = !touched;  // released meanwhile
    return is_gone || (now && std::chrono::nanoseconds(now->modified - touched->modified) > times_.stale_after);
}

// What processes that were killed while they tried has no use. One that tries just now tries again.
void FolderLock::remove_leftovers() const {
    std::error_code error;
    for (fs::directory_iterator entry(notes_, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        if (entry->path().filename().string().rfind(kAttempt, 0) == 0) {
            unlink(entry->path().c_str());
        }
    }
}

void FolderLock::touch_regularly() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ends_changed_.wait_for(lock, times_.touched_every, [this] { return ends_; })) {
        futimens(file_.get(), nullptr);
    }
}
