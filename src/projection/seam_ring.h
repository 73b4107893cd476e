// The ring about the seam, in which both lenses are mixed. Only its pixels cost time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "projection/image_frame.h"
#include "projection/table_rows.h"

class FramedPlane;

// The ring in some rows of the panorama. Its rows are independent of each other and may be used on any thread.
class SeamRing {
  public:
    // Without pixels.
    SeamRing() = default;

    // In rows `first` up to `end`, up to `width` radians from the seam. With what its pixels are mixed is still to be
    // found.
    SeamRing(const TableRows& rows, int first, int end, double width);

    // Finds it for row `y`. `own`: the row as `rows` has it. `source`: like the planes that will be sampled.
    void find_row(const TableRows& rows, int y, TableRows::Row own, const FramedPlane& source);

    // Mixes the other lens into row `y` of the panorama, which is sampled already. `scratch`: kept by the caller for
    // each thread.
    void mix_row(int y, const FramedPlane& source, std::vector<uint8_t>* scratch, uint8_t* row) const;

    // What a pixel is mixed with: where it is sampled, as SampleTable keeps it, and its share in 256ths.
    struct Pixel {
        int column;
        int32_t offset;
        uint16_t fraction;
        uint8_t share;
    };
    std::vector<Pixel> pixels_of_row(int y) const;

  private:
    // Where the spans and the pixels of row `y` begin, and those of the next row.
    struct Start {
        size_t span, pixel;
    };

    int first_ = 0;
    double width_ = 0;
    std::vector<Start> starts_;  // of the rows, and of the one behind them
    // In one run for all rows, so that memory is read ahead.
    std::vector<ColumnSpan> spans_;
    std::vector<int32_t> offsets_;
    std::vector<uint16_t> fractions_;
    std::vector<uint8_t> shares_;
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
