#include "jobs/program.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "jobs/errors.h"
#include "terminal/console.h"

extern char** environ;

namespace {

struct Ended {
    int error = 0;    // why it could not be begun
    int status = -1;  // as waitpid tells it
    std::string printed;
};

// What the program prints until it closes its output.
std::string read_all(int from) {
    std::string text;
    std::array<char, 4096> block;
    ssize_t count = 0;
    while ((count = read(from, block.data(), block.size())) > 0 || (count < 0 && errno == EINTR)) {
        text.append(block.data(), static_cast<size_t>(count < 0 ? 0 : count));
    }
    return text;
}

Ended run(const std::vector<std::string>& arguments, bool speaks) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return {errno, -1, ""};
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    if (speaks) {
        posix_spawn_file_actions_adddup2(&actions, console().descriptor(), STDERR_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    std::vector<char*> texts;
    texts.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        texts.push_back(const_cast<char*>(argument.c_str()));
    }
    texts.push_back(nullptr);
    Ended ended;
    pid_t process = 0;
    ended.error = posix_spawnp(&process, texts[0], &actions, nullptr, texts.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (ended.error == 0) {
        ended.printed = read_all(ends[0]);
        while (waitpid(process, &ended.status, 0) < 0 && errno == EINTR) {
        }
    }
    close(ends[0]);
    return ended;
}

bool went_well(const Ended& ended) {
    return ended.error == 0 && WIFEXITED(ended.status) && WEXITSTATUS(ended.status) == 0;
}

}  // namespace

std::string run_program(const std::vector<std::string>& arguments) {
    const Ended ended = run(arguments, true);
    if (ended.error != 0) {
        throw CommandError(arguments[0] + ": cannot be run (" + std::strerror(ended.error) + ")");
    }
    if (!went_well(ended)) {
        throw CommandError(arguments[0] + ": failed, as it says above");
    }
    return ended.printed;
}

std::optional<std::string> ask_program(const std::vector<std::string>& arguments) {
    const Ended ended = run(arguments, false);
    return went_well(ended) ? std::optional(ended.printed) : std::nullopt;
}
