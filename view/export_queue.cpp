#include "export_queue.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "jobs/job.h"
#include "terminal/interrupt.h"

namespace {

constexpr size_t kMostEnded = 50;  // that can still be asked for

}  // namespace

ExportQueue::ExportQueue(std::function<std::string(const std::string& message)> shown)
    : shown_(std::move(shown)), thread_([this] { work(); }) {}

ExportQueue::~ExportQueue() {
    close();
    thread_.join();
}

void ExportQueue::close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ends_ = true;
    for (const auto& one : entries_) {
        if (one.second.stop) {
            one.second.stop->raise();
        }
    }
    changed_.notify_all();
}

std::optional<int64_t> ExportQueue::add(QueuedJob job) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (waiting_.size() >= kMostWaiting) {
        return {};
    }
    const int64_t number = ++last_;
    Entry& entry = entries_[number];
    entry.job = std::move(job);
    tell(&entry, {{"state", "waiting"}}, false);
    waiting_.push_back(number);
    forget_old();
    return number;
}

std::optional<ExportQueue::State> ExportQueue::wait_for(int64_t number, int64_t seen,
                                                        std::chrono::milliseconds patience) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, patience, [&] {
        const auto found = entries_.find(number);
        return ends_ || found == entries_.end() || found->second.version > seen;
    });
    const auto found = entries_.find(number);
    if (found == entries_.end()) {
        return {};
    }
    return State{found->second.version, found->second.event, found->second.ended};
}

Json ExportQueue::list() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    Json list = Json::array();
    for (const auto& [number, entry] : entries_) {
        list.push_back({{"id", number}});
        list.back().update(entry.event);
    }
    return list;
}

bool ExportQueue::cancel(int64_t number) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = entries_.find(number);
    if (found == entries_.end()) {
        return false;
    }
    found->second.cancelled = true;
    if (found->second.stop) {
        found->second.stop->raise();
    }
    const auto place = std::find(waiting_.begin(), waiting_.end(), number);
    if (place != waiting_.end()) {
        waiting_.erase(place);
        tell(&found->second, {{"state", "cancelled"}}, true);
    }
    return true;
}

bool ExportQueue::makes(const std::string& name) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(entries_.begin(), entries_.end(),
                       [&name](const auto& one) { return !one.second.ended && one.second.job.name == name; });
}

void ExportQueue::work() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ends_) {
        if (waiting_.empty()) {
            changed_.wait(lock);
            continue;
        }
        Entry* const entry = &entries_.at(waiting_.front());
        waiting_.pop_front();
        entry->begun = Clock::now();
        entry->stop = std::make_unique<StopSign>();
        lock.unlock();
        run(entry);
        lock.lock();
        entry->stop.reset();
    }
}

// What runs is not forgotten, so the entry stays where it is.
void ExportQueue::run(Entry* entry) {
    Json event;
    try {
        event = perform(entry);
    } catch (const std::exception& error) {
        std::error_code ignored;
        std::filesystem::remove(entry->job.work_file, ignored);
        event = {{"state", "failed"}, {"message", error.what()}};
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    tell(entry, std::move(event), true);
}

// The last event of the job.
Json ExportQueue::perform(Entry* entry) {
    const QueuedJob& job = entry->job;
    job.prepare();
    Stoppable stoppable("the export is cancelled");
    const auto handler = [&](NQ360_STATE state, const std::string& reply) {
        if (state == NQ360_STARTED) {
            stoppable.leaves(file_beside(job.work_file));
        }
        return report(entry, state, reply);
    };
    const Outcome outcome = job.run(job.work_file, entry->stop->path(), handler);
    Json event = read_reply_with_state(outcome.state, outcome.reply, job.operation);
    if (outcome.state == NQ360_FAILED) {
        event["message"] = job.failure(event);
    } else if (outcome.state == NQ360_FINISHED) {
        event["message"] = job.remark(event);
        const std::string name = job.place();
        const std::lock_guard<std::mutex> lock(mutex_);
        entry->job.name = name;
    }
    return event;
}

// Whether the job is to stop.
bool ExportQueue::report(Entry* entry, NQ360_STATE state, const std::string& reply) {
    const std::lock_guard<std::mutex> lock(mutex_);
    Json event = read_reply_with_state(state, reply, entry->job.operation);
    const int64_t count = last_number(reply, "frame_count");
    entry->frames = state == NQ360_STARTED ? count : entry->frames;
    event["frames"] = entry->frames;
    event["frame_count"] = state == NQ360_STARTED ? 0 : count;
    tell(entry, std::move(event), false);
    return ends_ || entry->cancelled;
}

// Paths are the machine's own business: the page knows files by their names.
void ExportQueue::tell(Entry* entry, Json event, bool ended) {
    for (const char* path : {"movie_path", "movie_path1", "movie_path2", "export_path", "audio_path"}) {
        event.erase(path);
    }
    if (event.contains("message")) {
        event["message"] = shown_(text_of(event, "message"));
    }
    event["subject"] = entry->job.subject;
    event["name"] = entry->job.name;
    if (entry->begun != Clock::time_point()) {
        event["seconds"] = std::chrono::duration<double>(Clock::now() - entry->begun).count();
    }
    entry->event = std::move(event);
    entry->ended = ended;
    ++entry->version;
    changed_.notify_all();
}

void ExportQueue::forget_old() {
    size_t ended = static_cast<size_t>(
        std::count_if(entries_.begin(), entries_.end(), [](const auto& one) { return one.second.ended; }));
    for (auto entry = entries_.begin(); entry != entries_.end() && ended > kMostEnded;) {
        if (entry->second.ended) {
            entry = entries_.erase(entry);
            --ended;
        } else {
            ++entry;
        }
    }
}
