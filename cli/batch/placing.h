// How a whole file comes to its place.
#pragma once

#include <functional>
#include <string>

#include "batch/journal.h"
#include "jobs/replies.h"

struct Placing {
    const std::string& to;      // the panoramas' folder
    const std::string& output;  // the file's place below it
    const std::string& file;    // where it is now
    const Json& key;            // what it depends on
    bool force = false;         // replace what is not a batch's
};

// Writes the file to the disk, renames it to its place and tells of both to `log`. Throws CommandError when that fails,
// or when something of somebody else's is there; `record`, which may be null, tells what a batch has put there.
void put_in_place(const Placing& placing, const ShotRecord* record, const std::function<void(const Json& event)>& log);

// That something else than a batch's file stands at the path.
std::string in_the_way(const std::string& path);
