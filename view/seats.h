// So many at a time, and no more.
#pragma once

#include <atomic>
#include <memory>

class Seats {
  public:
    explicit Seats(int count) : free_(count) {}

    // Whoever has one gives it back by letting go of it. Null when all are taken.
    std::shared_ptr<void> take() {
        std::shared_ptr<void> seat(this, [](void* seats) { ++static_cast<Seats*>(seats)->free_; });
        return --free_ < 0 ? nullptr : seat;
    }

  private:
    std::atomic<int> free_;
};
