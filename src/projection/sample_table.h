// Bilinear sampling of 8-bit planes through tables.
//
// The results are those of cv::remap with INTER_LINEAR and BORDER_CONSTANT 0 in every byte: positions in 32nds
// of a pixel, weights that are products of 32nds, and a sum rounded to nearest. What is saved are the tests for
// the border, the conversion of the tables on each use where they are used many times, and, where the processor
// has AVX2, most of the time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "projection/image_frame.h"
#include "projection/seam_ring.h"
#include "projection/table_rows.h"

// A plane with a frame of zeros one pixel wide, so that sampling next to its border needs no test. Its pixels are
// not set.
class FramedPlane {
  public:
    FramedPlane(int rows, int cols);

    // The plane itself, without the frame.
    cv::Mat pixels() const { return pixels_; }
    const uint8_t* framed() const { return framed_.data; }
    ptrdiff_t stride() const { return static_cast<ptrdiff_t>(framed_.step); }

  private:
    cv::Mat framed_;
    cv::Mat pixels_;
};

// What is sampled, and where it goes: a picture (CV_8UC1) of the table's size.
struct SampledPlane {
    const FramedPlane* source;
    cv::Mat target;
};

// A table kept in the form that sampling needs.
class SampleTable {
  public:
    SampleTable() = default;

    // For sampling planes like `source`.
    SampleTable(const TableRows& rows, const FramedPlane& source);

    // Fills each target, its rows in parallel, and mixes the other lens into the ring.
    void sample(const std::vector<SampledPlane>& planes, const SeamRing& ring) const;

  private:
    void sample_run(const SampledPlane& plane, const SeamRing& ring, const cv::Range& run,
                    std::vector<uint8_t>* scratch) const;

    cv::Mat offsets_;    // CV_32SC1: from the framed plane's first byte to a pixel's upper left neighbour
    cv::Mat fractions_;  // CV_16UC1: 32nds of a pixel to the right of it, and times 256 below it
};

// The same through a table that is not kept. The sources are of one size and stride. Within `feather` radians of the
// seam both lenses are mixed.
void sample_once(const TableRows& rows, const std::vector<SampledPlane>& planes, double feather);

// The ring of a table that is kept, found for planes like `source`.
SeamRing kept_ring(const TableRows& rows, double feather, const FramedPlane& source);

// For a row of the table, where in planes like `source` the pixels are sampled, as SampleTable keeps it. The plain
// loop, and the one to use: the same numbers, in less time on processors that allow it.
void find_samples_plain(TableRows::Row row, int count, const FramedPlane& source, int32_t* offsets,
                        uint16_t* fractions);
void find_samples(TableRows::Row row, int count, const FramedPlane& source, int32_t* offsets, uint16_t* fractions);

// Samples `count` pixels of the plane that begins at `framed`. Plain and to use, as above.
void sample_row_plain(const uint8_t* framed, ptrdiff_t stride, const int32_t* offsets, const uint16_t* fractions,
                      uint8_t* target, int count);
void sample_row(const uint8_t* framed, ptrdiff_t stride, const int32_t* offsets, const uint16_t* fractions,
                uint8_t* target, int count);
