// Exports, one after the other, each with what it tells on its way.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "jobs/library.h"
#include "jobs/replies.h"
#include "terminal/stop_sign.h"

// One job of the queue.
struct QueuedJob {
    Operation operation;
    std::string subject;            // name of what it is made of
    std::string name;               // of the file that it makes
    std::function<void()> prepare;  // throws CommandError when it cannot begin
    std::function<Outcome(const std::string& output, const std::string& cancel_path, const ReplyHandler& handler)> run;
    std::function<std::string(const Json& error)> failure;  // the command's words for an error reply
    std::function<std::string(const Json& result)> remark;  // what is to be told of a job that went well; may be empty
    std::string work_file;                                  // where it is made
    std::function<std::string()> place;                     // gives what was made a name that is free, and returns that
};

class ExportQueue {
  public:
    static constexpr size_t kMostWaiting = 16;

    // `shown` makes a message fit for who looks at the page.
    explicit ExportQueue(std::function<std::string(const std::string& message)> shown);
    ~ExportQueue();
    ExportQueue(const ExportQueue&) = delete;
    ExportQueue& operator=(const ExportQueue&) = delete;

    // The number of the new job; nothing when too many wait.
    std::optional<int64_t> add(QueuedJob job);

    // The state of a job that is newer than `seen`, when there is one or comes within the time; nothing for no such
    // job.
    struct State {
        int64_t version;
        Json event;
        bool ended;
    };
    std::optional<State> wait_for(int64_t number, int64_t seen, std::chrono::milliseconds patience);

    // All of them in the order of their numbers.
    Json list() const;

    // Whether there is such a job; it ends within its next few frames.
    bool cancel(int64_t number);

    // Cancels what runs; nothing more is begun.
    void close();

    // Whether a job that has not ended makes a file of this name.
    bool makes(const std::string& name) const;

  private:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        QueuedJob job;
        Json event;
        int64_t version = 1;
        int64_t frames = 0;
        Clock::time_point begun;
        bool ended = false;
        bool cancelled = false;
        std::unique_ptr<StopSign> stop;  // of the one that runs
    };

    void work();
    void run(Entry* entry);
    Json perform(Entry* entry);
    bool report(Entry* entry, NQ360_STATE state, const std::string& reply);
    void tell(Entry* entry, Json event, bool ended);
    void forget_old();

    std::function<std::string(const std::string& message)> shown_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<int64_t, Entry> entries_;
    std::deque<int64_t> waiting_;
    int64_t last_ = 0;
    bool ends_ = false;
    std::thread thread_;
};
