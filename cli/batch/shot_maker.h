// One shot of a batch, from its halves to a whole file.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "batch/making.h"
#include "batch/plan.h"
#include "jobs/library.h"

struct MakingOrder {
    PlannedShot shot;
    std::string output;  // where the panorama is to be in the end, as failures name it
    std::string file;    // where it is made
    int workers = 1;     // parts of a movie at a time
    int part = 0;        // of a movie that is joined later: 1 to parts
    int parts = 0;       // 0: the whole movie
};

struct MadeShot {
    bool cancelled = false;
    std::vector<std::string> notices;  // sentences about what may surprise
};

// Gets how much of the shot is made, 0 to 1, and tells whether to stop.
using ShareHandler = std::function<bool(double share)>;

// Makes the file as `nq360 export` would. Throws CommandError in the words of that command when it cannot be made.
MadeShot make_shot(const Making& making, const MakingOrder& order, const ShareHandler& handler);

// What a panorama depends on: the same key, the same file. Throws CommandError when an input is not there.
Json key_of(const PlannedShot& shot, const Json& making);
