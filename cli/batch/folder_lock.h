// Who works in a folder: one process at a time, also where several machines share the folder.
//
// The lock is a file, DIR/.nq360/lock.N, that tells its owner: the one of the highest number counts. It is made whole
// under another name and linked to its own, which is atomic on local file systems and on NFS; where there are no hard
// links (exFAT), it is created exclusively. The owner touches it every few seconds. It counts for nothing when its
// owner was a process of this machine that is no more, or when it has not been touched for long by the clock of the
// file server. Whoever takes over makes lock.N+1, which only one can, and looks again whether lock.N is still the one
// that counted for nothing. What is assumed: linking and exclusive creation are atomic, and a process that could not
// touch its lock for that long looks whether it still has it before each file that it puts in place.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "terminal/descriptor.h"

struct LockTimes {
    std::chrono::milliseconds touched_every{10000};
    std::chrono::milliseconds stale_after{60000};
};

class FolderLock {
  public:
    // Makes DIR and DIR/.nq360 where they are not there. Throws CommandError that tells who has the lock.
    explicit FolderLock(const std::string& folder, LockTimes times = {});
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    // Whether the lock is there still, and this process's.
    bool holds() const;

    // Of this owner: "4f0c...", for names that no other process uses.
    const std::string& id() const { return id_; }

  private:
    // A lock that stands there.
    struct Found {
        int number = -1;    // none
        std::string owner;  // JSON
    };

    std::string path_of(int number) const;
    std::vector<int> numbers() const;
    Found newest() const;
    bool take();
    Descriptor make(int number) const;
    bool is_stale(const Found& lock) const;
    void remove_leftovers() const;
    void touch_regularly();

    std::string folder_;
    std::string notes_;
    std::string id_;
    LockTimes times_;
    int number_ = -1;
    Descriptor file_;
    std::mutex mutex_;
    std::condition_variable ends_changed_;
    bool ends_ = false;
    std::thread toucher_;
};
