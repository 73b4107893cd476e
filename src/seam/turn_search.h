// By how much one lens's picture is turned against the other's.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "seam/seam_pair.h"

struct FoundTurn {
    double directions = 0;  // by which lens 2's ring is to be turned on, to fractions; 0 without confidence
    double confidence = 0;  // 0 to 1: how much better the lenses fit there than anywhere else around the seam
    bool is_clear = false;  // whether there is enough to be seen at the seam to tell
};

// Compares the rings of all pairs together, lens 2's turned by up to ten degrees.
FoundTurn find_turn(const std::vector<SeamPair>& pairs);
