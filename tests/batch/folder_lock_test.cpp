#include "batch/folder_lock.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "batch/journal.h"
#include "jobs/errors.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test_support::TempDir;
using testing::HasSubstr;

class FolderLockTest : public testing::Test {
  protected:
    std::string lock_file() const { return folder_ + "/" + kNotesFolder + "/lock.0"; }

    std::string contents() const {
        std::ifstream file(lock_file(), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // A lock that this machine's process has left, changed by what is given.
    void leave_lock(const Json& changes, std::chrono::seconds age = 0s) {
        Json owner;
        {
            const FolderLock lock(folder_);
            owner = Json::parse(contents());
        }
        owner.update(changes);
        std::ofstream(lock_file()) << json_line(owner);
        age_lock(age);
    }

    void age_lock(std::chrono::seconds age) const {
        fs::last_write_time(lock_file(), fs::file_time_type::clock::now() - age);
    }

    // Why the folder cannot be locked; empty when it can.
    std::string refusal(LockTimes times = {}) const {
        try {
            const FolderLock lock(folder_, times);
            EXPECT_TRUE(lock.holds());
            return "";
        } catch (const CommandError& error) {
            return error.what();
        }
    }

    size_t files() const {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder_ + "/" + kNotesFolder), {}));
    }

    // A process that is no more.
    static int64_t ended_process() {
        const pid_t child = fork();
        if (child == 0) {
            _exit(0);
        }
        waitpid(child, nullptr, 0);
        return child;
    }

    TempDir dir_;
    const std::string folder_ = dir_.file("panoramas");
};

TEST_F(FolderLockTest, IsOneProcesssAtATime) {
    auto lock = std::make_unique<FolderLock>(folder_);
    EXPECT_TRUE(lock->holds());
    EXPECT_THAT(refusal(), HasSubstr("(process " + std::to_string(getpid()) + ") works there"));
    EXPECT_TRUE(lock->holds());
    lock.reset();
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(files(), 0U);
}

TEST_F(FolderLockTest, OfAProcessThatIsNoMoreCountsForNothing) {
    leave_lock({{"process", ended_process()}});
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(files(), 0U);
}

TEST_F(FolderLockTest, OfAProcessWhoseNumberAnotherHasCountsForNothing) {
    leave_lock({{"started", "1"}});
    EXPECT_EQ(refusal(), "");
}

TEST_F(FolderLockTest, OfAProcessThatLivesCountsHoweverOldItIs) {
    leave_lock(Json::object(), 24h);
    EXPECT_THAT(refusal(), HasSubstr("works there"));
}

TEST_F(FolderLockTest, OfAnotherMachineCountsWhileItIsTouched) {
    leave_lock({{"machine", "another"}, {"host", "node\n7"}, {"process", ended_process()}}, 55s);
    EXPECT_THAT(refusal(), HasSubstr("a run on node\xEF\xBF\xBD"
                                     "7 (process"));
    EXPECT_EQ(files(), 1U);
    age_lock(65s);
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(files(), 0U);
}

TEST_F(FolderLockTest, OfAnotherMachineIsOldByTheTimesThatWereGiven) {
    leave_lock({{"machine", "another"}}, 5s);
    EXPECT_EQ(refusal({1s, 3s}), "");
}

TEST_F(FolderLockTest, ThatIsNoneIsWaitedForToo) {
    leave_lock(Json::object());
    std::ofstream(lock_file(), std::ios::trunc).flush();
    EXPECT_THAT(refusal(), HasSubstr("another run works there"));
    age_lock(65s);
    EXPECT_EQ(refusal(), "");
}

TEST_F(FolderLockTest, IsTouchedWhileItIsHeld) {
    const FolderLock lock(folder_, {10ms, 60s});
    age_lock(1h);
    while (fs::last_write_time(lock_file()) < fs::file_time_type::clock::now() - 30min) {
        std::this_thread::sleep_for(5ms);
    }
}

TEST_F(FolderLockTest, NoticesThatItIsGoneOrAnothers) {
    const auto lock = std::make_unique<FolderLock>(folder_);
    const std::string own = contents();
    fs::remove(lock_file());
    EXPECT_FALSE(lock->holds());
    std::ofstream(lock_file()) << R"({"id":"another"})";
    EXPECT_FALSE(lock->holds());
    std::ofstream(lock_file()) << own;
    EXPECT_TRUE(lock->holds());
    fs::rename(folder_, folder_ + "-away");
    EXPECT_FALSE(lock->holds());
}

TEST_F(FolderLockTest, LeavesAnothersWhereItIs) {
    {
        const FolderLock lock(folder_);
        std::ofstream(lock_file()) << R"({"id":"another"})";
    }
    EXPECT_TRUE(fs::exists(lock_file()));
}

TEST_F(FolderLockTest, IsTakenOverByOneOfMany) {
    for (int round = 0; round < 30; ++round) {
        leave_lock({{"started", "1"}});
        std::vector<std::unique_ptr<FolderLock>> locks(8);
        std::vector<std::thread> threads;
        for (auto& lock : locks) {
            threads.emplace_back([this, &lock] {
                try {
                    lock = std::make_unique<FolderLock>(folder_);
                } catch (const CommandError&) {
                    lock.reset();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        const auto taken = std::count_if(locks.begin(), locks.end(), [](const auto& lock) { return lock != nullptr; });
        EXPECT_EQ(taken, 1) << round;
        locks.clear();
        EXPECT_EQ(files(), 0U);
    }
}

TEST_F(FolderLockTest, RemovesWhatKilledProcessesLeft) {
    leave_lock({{"started", "1"}});
    std::ofstream(folder_ + "/" + kNotesFolder + "/lock-0123") << "an attempt";
    std::ofstream(folder_ + "/" + kNotesFolder + "/lock.notes") << "somebody's";
    EXPECT_EQ(refusal(), "");
    EXPECT_EQ(files(), 1U);
}

TEST_F(FolderLockTest, TellsWhenTheFolderCannotBeMade) {
    std::ofstream(folder_) << "a file";
    EXPECT_THAT(refusal(), HasSubstr("the folder cannot be made"));
}

}  // namespace
