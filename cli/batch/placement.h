// How a panorama gets to its place: only whole, and known for a batch's at any moment.
#pragma once

#include <functional>
#include <string>

#include "batch/journal.h"

struct Placement {
    std::string file;    // whole, on the same volume
    std::string output;  // the panorama's name below the folder of panoramas ...
    std::string path;    // ... and with it
    Json key;
    const ShotRecord* record = nullptr;  // what the journals knew of this output, if anything
    bool force = false;                  // replace what is not a batch's
};

// Writes the file to the disk. Throws CommandError when that fails.
void write_to_disk(const Placement& placement);

// Renames the file, between the lines that tell so. Throws CommandError when that cannot be.
void put_in_place(const Placement& placement, const std::function<void(const Json& event)>& log);

// What is said of an output that is not a batch's.
std::string in_the_way(const std::string& path);
