// The same work on many things, several at a time, whose results are taken in order.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <future>
#include <vector>

template <typename Result>
class InOrder {
  public:
    // Begins at once to call work(0) to work(count - 1), `workers` at a time, each on another thread.
    template <typename Work>
    InOrder(size_t count, int workers, const Work& work) {
        tasks_.reserve(count);
        for (size_t i = 0; i < count; ++i) {
            tasks_.emplace_back([work, i] { return work(i); });
        }
        for (size_t i = 0; i < std::min(count, static_cast<size_t>(workers)); ++i) {
            workers_.push_back(std::async(std::launch::async, [this] { run(); }));
        }
    }
    // Waits for what has begun; the rest never begins.
    ~InOrder() { begun_ = tasks_.size(); }
    InOrder(const InOrder&) = delete;
    InOrder& operator=(const InOrder&) = delete;

    // What work(i) returned; throws what it threw. Once for each i.
    Result take(size_t i) { return tasks_[i].get_future().get(); }

  private:
    void run() {
        for (size_t i = begun_++; i < tasks_.size(); i = begun_++) {
            tasks_[i]();
        }
    }

    std::vector<std::packaged_task<Result()>> tasks_;
    std::atomic<size_t> begun_ = 0;
    std::vector<std::future<void>> workers_;  // the last member: each waits for its thread when it is destroyed
};

// As many as the process may use.
int core_count();
