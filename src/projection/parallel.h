// Shares work among the threads of OpenCV.
#pragma once

#include <atomic>

#include <opencv2/core/utility.hpp>

namespace parallel_detail {

// What cv::parallel_for_ runs. The libraries that own the threads order the parts by means that a thread sanitizer
// does not see, since they are not built with it. So the order stands here too, for one atomic operation at either
// end of a part: what the caller did before comes before every part, and every part before what the caller does
// next.
template <typename Work>
class OrderedParts : public cv::ParallelLoopBody {
  public:
    explicit OrderedParts(const Work& work) : work_(work) {}

    void run(int count) {
        order_.store(0, std::memory_order_release);
        cv::parallel_for_(cv::Range(0, count), *this);
        order_.load(std::memory_order_acquire);
    }

    void operator()(const cv::Range& part) const override {
        order_.load(std::memory_order_acquire);
        work_(part);
        order_.fetch_add(1, std::memory_order_release);
    }

  private:
    const Work& work_;
    mutable std::atomic<int> order_{0};
};

}  // namespace parallel_detail

// Calls work(part) for parts, each a cv::Range, that together are 0 to count - 1, in any order and on any thread.
// Returns when all are done, and throws what one of them threw.
template <typename Work>
void in_parallel(int count, const Work& work) {
    parallel_detail::OrderedParts<Work>(work).run(count);
}
