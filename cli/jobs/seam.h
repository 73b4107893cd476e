// How far two lens pictures are apart in brightness and colour where they meet.
#pragma once

#include <array>
#include <vector>

#include "jobs/lens_pair.h"

// What lens 2 has more than lens 1 at the seam, for Y, U and V.
using SeamStep = std::array<double, 3>;

double magnitude(const SeamStep& step);

// Where along the seam the lenses of a pair are compared. Lenses see a little past the hemisphere: there both show
// the same things. Where the pictures end at the hemisphere, what lies next to the seam on either side is continued
// to it.
class Seam {
  public:
    // Throws CommandError when there is hardly anything to compare.
    explicit Seam(const LensPair& pair);

    // The step of this pair or, at the same places, of the same pair corrected.
    SeamStep step(const LensPair& pair) const;

  private:
    bool lenses_overlap_;
    std::array<std::vector<int>, 3> directions_;
};

// Whole numbers that close the step, half of it on either lens.
std::array<Correction, 2> closing_corrections(const SeamStep& step);
