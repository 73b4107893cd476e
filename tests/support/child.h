// Runs a part of a test in a process of its own: to give up rights, or to see a process end.
#pragma once

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test_support {

// Thrown by what a test needs of the machine and does not get.
struct CannotSetUp : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class ChildEnd { kTrue, kFalse, kNotSetUp };

struct ChildResult {
    ChildEnd end = ChildEnd::kFalse;
    std::string words;  // what() of the exception that the child threw
};

// What `action` returned, or said, in a child process.
inline ChildResult run_in_child(const std::function<bool()>& action) {
    constexpr size_t kMostWords = 4096;
    void* const shared = mmap(nullptr, kMostWords, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        return {ChildEnd::kFalse, "no memory to share"};
    }
    char* const words = static_cast<char*>(shared);
    const pid_t child = fork();
    if (child == 0) {
        ChildEnd end = ChildEnd::kFalse;
        try {
            end = action() ? ChildEnd::kTrue : ChildEnd::kFalse;
        } catch (const CannotSetUp& obstacle) {
            end = ChildEnd::kNotSetUp;
            std::snprintf(words, kMostWords, "%s", obstacle.what());
        } catch (const std::exception& thrown) {
            std::snprintf(words, kMostWords, "%s", thrown.what());
        } catch (...) {
        }
        _exit(static_cast<int>(end));
    }
    ChildResult result;
    int status = -1;
    if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
        WEXITSTATUS(status) <= static_cast<int>(ChildEnd::kNotSetUp)) {
        result.end = static_cast<ChildEnd>(WEXITSTATUS(status));
    }
    result.words = words;
    munmap(shared, kMostWords);
    return result;
}

// Whether `action` returned true in a child process.
inline bool true_in_child(const std::function<bool()>& action) {
    return run_in_child(action).end == ChildEnd::kTrue;
}

// The same without the rights of root, which may write everywhere. A folder of the test's own must be opened to
// others first.
inline bool true_unprivileged(const std::function<bool()>& action) {
    return true_in_child([&] {
        constexpr id_t kNobody = 65534;
        if (geteuid() == 0 && (setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
            return false;
        }
        return action();
    });
}

}  // namespace test_support
