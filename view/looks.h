// What a file shows of itself: its description and a thumbnail, made once and kept in the user's cache.
#pragma once

#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

#include "jobs/description.h"
#include "jobs/library.h"
#include "shared_folders.h"

struct Look {
    Description description;
    std::string failure;    // why there is none, in the command's words
    std::string thumbnail;  // path of the JPEG; empty: none could be made
};

// The description alone, without decoding the picture: not all damage is known by it.
Look glance_at(const FileVersion& file);

class Looks {
  public:
    Looks();

    // What is in the cache.
    std::optional<Look> kept(const FileVersion& file) const;

    // What is in the cache or, when its turn has come, found out: as many at a time as there are processors.
    Look look_at(const FileVersion& file);

  private:
    std::string stem_of(const FileVersion& file) const;
    Outcome analyze_in_turn(const std::string& path, const std::optional<std::string>& thumbnail);

    std::string folder_;  // empty: nothing can be kept
    std::mutex mutex_;
    std::condition_variable freed_;
    int free_;
};
