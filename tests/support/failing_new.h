// Takes the place of operator new in the program that includes this, the library's calls included, so that a test
// can make the n-th allocation fail. Weak, so that several sources of a program can include it.
#pragma once

#include <cstdlib>
#include <new>

#include "support/delete_by_free.h"

namespace test_support {

// While it lives, the allocation of this thread with this number (from 0) throws. Others succeed.
class FailingNew {
  public:
    explicit FailingNew(long number) { countdown() = number; }
    ~FailingNew() { countdown() = kNever; }
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    // Whether there were so many allocations.
    bool failed() const { return countdown() < 0; }

    static void* allocate(std::size_t size) {
        if (countdown() != kNever && countdown()-- == 0) {
            throw std::bad_alloc();
        }
        if (void* memory = std::malloc(size > 0 ? size : 1)) {
            return memory;
        }
        throw std::bad_alloc();
    }

  private:
    static constexpr long kNever = 1L << 62;
    static long& countdown() {
        thread_local long value = kNever;
        return value;
    }
};

}  // namespace test_support

[[gnu::weak]] void* operator new(std::size_t size) {
    return test_support::FailingNew::allocate(size);
}
[[gnu::weak]] void* operator new[](std::size_t size) {
    return test_support::FailingNew::allocate(size);
}
