// examples/progress.cpp, run as its user would, Ctrl-C included.
#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "examples/run_example.h"

using namespace test_support;
using testing::HasSubstr;

namespace {

class ProgressExample : public testing::Test {
  protected:
    void make_movies(const std::string& frames) {
        run_sample({"movie", lens1, lens2, "--size", "1440", "--frames", frames, "--codec", "mjpeg", "--quality", "8",
                    "--grain", "0"});
    }

    TempDir dir;
    std::string lens1 = dir.file("lens1.mov");
    std::string lens2 = dir.file("lens2.mov");
    std::string panorama = dir.file("panorama.mov");
};

// Runs a program, sends it Ctrl-C once it has written a whole line, and returns its exit status and output.
CommandResult run_and_interrupt(const std::vector<std::string>& arguments) {
    int ends[2];
    if (pipe(ends) != 0) {
        throw std::runtime_error("cannot make a pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        std::vector<char*> argv;
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        dup2(ends[1], STDOUT_FILENO);
        std::freopen("/dev/null", "w", stderr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    close(ends[1]);
    CommandResult result;
    bool sent = false;
    char byte;
    while (read(ends[0], &byte, 1) == 1) {
        result.out += byte;
        if (byte == '\n' && !sent) {
            kill(child, SIGINT);
            sent = true;
        }
    }
    close(ends[0]);
    int status = 0;
    if (waitpid(child, &status, 0) == child && WIFEXITED(status)) {
        result.status = WEXITSTATUS(status);
    }
    return result;
}

TEST_F(ProgressExample, ShowsFramesUpToTheEnd) {
    make_movies("20");
    const CommandResult result = run_command({example("example-progress"), lens1, lens2, panorama});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("20 frames to do\n"));
    EXPECT_THAT(result.out, HasSubstr("\r10 of 20"));
    EXPECT_THAT(result.out, HasSubstr("\rdone"));
    EXPECT_TRUE(std::filesystem::exists(panorama));
}

TEST_F(ProgressExample, CtrlCStopsAndLeavesNoFile) {
    make_movies("60");  // far more than go by before the signal arrives
    const CommandResult result = run_and_interrupt({example("example-progress"), lens1, lens2, panorama});
    EXPECT_EQ(result.status, 130);
    EXPECT_THAT(result.out, HasSubstr("stopped"));
    EXPECT_FALSE(std::filesystem::exists(panorama));
}

TEST_F(ProgressExample, SaysWhyItFailed) {
    const CommandResult result = run_command({example("example-progress"), lens1, lens2, panorama});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("failed: {\"errnum\":\"30000\""));
}

}  // namespace
