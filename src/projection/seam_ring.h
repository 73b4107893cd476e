// The ring about the seam, in which both lenses are mixed. Only its pixels cost time.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "projection/sample_table.h"
#include "projection/table_rows.h"

// The ring's pixels in a row of the panorama.
struct SeamPixels {
    std::vector<ColumnSpan> spans;
    // Of all spans in turn: where the other lens is sampled, as SampleTable keeps it, and its share in 256ths.
    std::vector<int32_t> offsets;
    std::vector<uint16_t> fractions;
    std::vector<uint8_t> shares;
};

// What a thread keeps from row to row.
struct SeamScratch {
    std::vector<float> x, y, sides, shares;
    std::vector<uint8_t> other;
};

// Fills the rest of `pixels`, whose spans are row `y`'s less than `width` radians from the seam. `own`: the row as
// `rows` has it.
void find_seam_pixels(const TableRows& rows, int y, TableRows::Row own, double width, const FramedPlane& source,
                      SeamScratch* scratch, SeamPixels* pixels);

// Mixes the other lens into a row of the panorama that is sampled already.
void mix_seam_pixels(const SeamPixels& pixels, const FramedPlane& source, SeamScratch* scratch, uint8_t* row);

// The ring of a table that is kept.
class SeamRing {
  public:
    // Without pixels.
    SeamRing() = default;

    // For planes like `source`.
    SeamRing(const TableRows& rows, double width, const FramedPlane& source);

    // Mixes into `target`, which SampleTable::sample has filled, its rows in parallel.
    void mix(const FramedPlane& source, cv::Mat* target) const;

  private:
    std::vector<SeamPixels> rows_;
};

// How far past the seam both lenses show something.
struct LitOverlap {
    double width;  // radians, at most what was asked for
    bool known;    // whether there was light enough at the seam to tell; otherwise the width is what was asked for
};

// Looks at a pair in the stack of Y. Lens pictures that end early are black there, while the other lens shows
// something. `black`, `lit`: of each lens, the value that nothing exceeds and the one that light does.
LitOverlap lit_overlap(const TableRows& rows, const FramedPlane& stack, const std::array<int, 2>& black,
                       const std::array<int, 2>& lit, double width);
