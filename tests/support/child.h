// Runs a part of a test in a process of its own: to give up rights, or to see a process end.
#pragma once

#include <functional>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test_support {

// Whether `action` returned true in a child process.
inline bool true_in_child(const std::function<bool()>& action) {
    const pid_t child = fork();
    if (child == 0) {
        bool result = false;
        try {
            result = action();
        } catch (...) {
        }
        _exit(result ? 0 : 1);
    }
    int status = -1;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
