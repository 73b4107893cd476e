// Runs other programs (exiftool, ffmpeg) and catches what is logged.
#pragma once

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace test_support {

struct CommandResult {
    int status = -1;  // the exit status, -1 when the program was ended by a signal
    std::string out;
    std::string err;
};

namespace command_detail {

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

inline std::string content(std::FILE* file) {
    std::string text;
    std::rewind(file);
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, file)) > 0;) {
        text.append(buffer, n);
    }
    return text;
}

}  // namespace command_detail

// Runs a program found in PATH with these arguments (no shell: any character is safe in a name) and an empty
// standard input. Throws when it cannot be started.
inline CommandResult run_command(const std::vector<std::string>& arguments) {
    using command_detail::File;
    File out(std::tmpfile(), std::fclose);
    File err(std::tmpfile(), std::fclose);
    if (!out || !err) {
        throw std::runtime_error("cannot make a temporary file");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", 0, 0);
    posix_spawn_file_actions_adddup2(&actions, fileno(out.get()), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(err.get()), STDERR_FILENO);

    std::vector<char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child = -1;
    const int failed = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        throw std::runtime_error("cannot run " + arguments.front() + "; scripts/deps test installs it");
    }

    CommandResult result;
    int status = 0;
    if (waitpid(child, &status, 0) == child && WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    }
    result.out = command_detail::content(out.get());
    result.err = command_detail::content(err.get());
    return result;
}

// The standard output of a program that must succeed.
inline std::string output_of(const std::vector<std::string>& arguments) {
    const CommandResult result = run_command(arguments);
    if (result.status != 0) {
        throw std::runtime_error(arguments.front() + " failed: " + result.err);
    }
    return result.out;
}

// What `action` writes to the standard error stream.
template <typename Action>
std::string logged(Action&& action) {
    testing::internal::CaptureStderr();
    try {
        action();
    } catch (...) {
        testing::internal::GetCapturedStderr();
        throw;
    }
    return testing::internal::GetCapturedStderr();
}

}  // namespace test_support
