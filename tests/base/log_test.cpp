#include "base/log.h"

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/child.h"
#include "support/command.h"

using namespace test_support;

TEST(Log, EveryLevelIsLogged) {
    for (const int set : {-1, 0, 3, 100}) {
        nq360_set_log_level(set);
        for (const int level : {0, 1, 3, 99}) {
            int result = 0;
            EXPECT_EQ(logged([&] { result = nq360_log(level, "[tag] %s:%d:", "text", 7); }), "[tag] text:7:\n");
            EXPECT_EQ(result, '\n');
        }
    }
}

TEST(Log, LogReturnsWhatWritingTheNewlineDid) {
    EXPECT_TRUE(true_in_child([] { return close(STDERR_FILENO) == 0 && nq360_log(1, "[tag]") == EOF; }));
}

TEST(Log, LinesOfTwoThreadsDoNotMix) {
    const std::string log = logged([] {
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < 500; ++i) {
                    nq360_log(1, "[thread %d] %s%s", t, "first half ", "second half");
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    size_t lines = 0;
    for (size_t at = 0; at < log.size(); ++lines) {
        const size_t end = log.find('\n', at);
        EXPECT_THAT(log.substr(at, end - at), testing::MatchesRegex(R"(\[thread [0-3]\] first half second half)"));
        at = end + 1;
    }
    EXPECT_EQ(lines, 2000u);
}
