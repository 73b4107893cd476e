// What makes the two lenses of a shot meet at the seam in brightness, colour and direction.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "media/ffmpeg_ptr.h"
#include "seam/seam_pair.h"
#include "seam/turn_search.h"

using PlaneGains = std::array<double, 3>;  // factors on Y, U and V, as the export applies them
using PlaneOffsets = std::array<int, 3>;   // added to them; CORRECT_NONE: nothing
using SeamStep = std::array<double, 3>;    // in Y, U and V

// How a lens's picture is changed before it is stitched.
struct LensChange {
    double turn = 0;  // radians
    PlaneGains gains{1, 1, 1};
    PlaneOffsets corrections{0, 0, 0};
};

using LensChanges = std::array<LensChange, 2>;

struct SeamMatch {
    double turn = 0;  // degrees to be added to lens 2's

    // Either the one, beside the gains that are there, or the other, without corrections.
    std::array<PlaneOffsets, 2> corrections{};
    std::array<PlaneGains, 2> gains{{{1, 1, 1}, {1, 1, 1}}};

    // How far the lenses are apart in most directions along the seam: as they are, turned, and then corrected or
    // gained.
    SeamStep step{};
    SeamStep step_turned{};
    SeamStep step_corrected{};
    SeamStep step_gained{};

    double compared = 0;    // share of the seam
    double confidence = 0;  // 0 to 1
    std::string warning;    // why this may be of no use
};

// Looks at pairs of frames, one of stills, of movies several.
class SeamMatcher {
  public:
    explicit SeamMatcher(const LensChanges& changes) : changes_(changes) {}

    // 4:2:0 frames of one size that the camera has.
    void look_at(const AVFrame* frame1, const AVFrame* frame2);

    SeamMatch match() const;

  private:
    std::vector<SeamValues> values(int plane, int shift) const;
    std::string warning(const SeamMatch& match, const FoundTurn& found) const;

    LensChanges changes_;
    std::vector<SeamPair> pairs_;
    std::array<double, 2> blacks_{};  // what the lenses' Y is when there is no light
    bool is_one_picture_ = true;      // both frames, in every pair
};
