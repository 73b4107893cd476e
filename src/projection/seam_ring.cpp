#include "projection/seam_ring.h"

#include <algorithm>
#include <cmath>

#include "projection/angles.h"
#include "projection/parallel.h"

namespace {

constexpr int kWhole = 256;  // of a share

// 1 where lens 1 is sampled, -1 where lens 2 is, 0 in the band. The lenses keep clear of the edges of their pictures.
void find_sides(const float* own_y, int count, float lens_rows, float* sides) {
    const float lens2 = lens_rows - 0.5f;
    const float band = 2 * lens_rows - 0.5f;
    for (int i = 0; i < count; ++i) {
        const float side = own_y[i] < lens2 ? 1.0f : -1.0f;
        sides[i] = own_y[i] < band ? side : 0.0f;
    }
}

}  // namespace

void find_seam_pixels(const TableRows& rows, int y, TableRows::Row own, double width, const FramedPlane& source,
                      SeamScratch* scratch, SeamPixels* pixels) {
    size_t count = 0;
    for (const ColumnSpan& span : pixels->spans) {
        count += static_cast<size_t>(span.end - span.first);
    }
    for (std::vector<float>* row : {&scratch->x, &scratch->y, &scratch->sides, &scratch->shares}) {
        row->resize(count);
    }
    pixels->offsets.resize(count);
    pixels->fractions.resize(count);
    pixels->shares.resize(count);
    size_t at = 0;
    for (const ColumnSpan& span : pixels->spans) {
        find_sides(own.y + span.first, span.end - span.first, rows.lens_rows(), scratch->sides.data() + at);
        rows.other_lens(y, span, width, scratch->sides.data() + at, scratch->x.data() + at, scratch->y.data() + at,
                        scratch->shares.data() + at);
        at += static_cast<size_t>(span.end - span.first);
    }
    find_samples({scratch->x.data(), scratch->y.data()}, static_cast<int>(count), source, pixels->offsets.data(),
                 pixels->fractions.data());
    for (size_t i = 0; i < count; ++i) {
        pixels->shares[i] = static_cast<uint8_t>(scratch->shares[i] * kWhole + 0.5f);
    }
}

namespace {

// To be vectorised.
void mix(const uint8_t* other, const uint8_t* shares, int count, uint8_t* row) {
    for (int i = 0; i < count; ++i) {
        const int own_share = kWhole - shares[i];
        row[i] = static_cast<uint8_t>((row[i] * own_share + other[i] * shares[i] + kWhole / 2) / kWhole);
    }
}

}  // namespace

void mix_seam_pixels(const SeamPixels& pixels, const FramedPlane& source, SeamScratch* scratch, uint8_t* row) {
    const size_t count = pixels.offsets.size();
    scratch->other.resize(count);
    sample_row(source.framed(), source.stride(), pixels.offsets.data(), pixels.fractions.data(), scratch->other.data(),
               static_cast<int>(count));
    size_t at = 0;
    for (const ColumnSpan& span : pixels.spans) {
        mix(scratch->other.data() + at, pixels.shares.data() + at, span.end - span.first, row + span.first);
        at += static_cast<size_t>(span.end - span.first);
    }
}

SeamRing::SeamRing(const TableRows& rows, double width, const FramedPlane& source)
    : rows_(static_cast<size_t>(rows.size().height)) {
    in_parallel(rows.size().height, [&](const cv::Range& range) {
        std::vector<float> own;
        SeamScratch scratch;
        for (int y = range.start; y < range.end; ++y) {
            SeamPixels& pixels = rows_[static_cast<size_t>(y)];
            pixels.spans = rows.seam_spans(y, width);
            if (!pixels.spans.empty()) {
                find_seam_pixels(rows, y, rows.row(y, &own), width, source, &scratch, &pixels);
            }
        }
    });
}

void SeamRing::mix(const FramedPlane& source, cv::Mat* target) const {
    in_parallel(static_cast<int>(rows_.size()), [&](const cv::Range& range) {
        SeamScratch scratch;
        for (int y = range.start; y < range.end; ++y) {
            mix_seam_pixels(rows_[static_cast<size_t>(y)], source, &scratch, target->ptr(y));
        }
    });
}

// ---- What the lenses show past the seam ----

namespace {

constexpr int kDirections = 180;         // along the seam
constexpr double kStep = radians(0.25);  // away from it
constexpr double kEdge = radians(0.3);   // a picture's edge is soft, and colour has half of the pixels
constexpr double kLeastLit = 0.05;       // of the directions must be lit to tell anything
constexpr double kMostDark = 0.2;        // of the lit directions; things near the camera differ between the lenses

// What lens 1 or 2 shows in a direction, to the nearest pixel of the stack.
int value_of(const TableRows& rows, const cv::Mat& stack, int lens, double phi, double psi) {
    float x = 0;
    float y = 0;
    rows.lens_position(lens, phi, psi, &x, &y);
    const int column = std::clamp(static_cast<int>(std::lround(x)), 0, stack.cols - 1);
    const int row = std::clamp(static_cast<int>(std::lround(y)), 0, stack.rows - 1);
    return stack.at<uint8_t>(row, column);
}

}  // namespace

LitOverlap lit_overlap(const TableRows& rows, const FramedPlane& stack, const std::array<int, 2>& black,
                       const std::array<int, 2>& lit, double width) {
    LitOverlap found = {width, false};
    for (int lens = 0; lens < 2; ++lens) {
        const size_t other = lens == 0 ? 1 : 0;
        for (double past = kStep; past < width + kEdge; past += kStep) {
            const double phi = kPi / 2 + (lens == 0 ? past : -past);
            int lit_ones = 0;
            int dark_ones = 0;
            for (int i = 0; i < kDirections; ++i) {
                const double psi = i * 2 * kPi / kDirections;
                if (value_of(rows, stack.pixels(), static_cast<int>(other), phi, psi) > lit[other]) {
                    ++lit_ones;
                    dark_ones += value_of(rows, stack.pixels(), lens, phi, psi) <= black[static_cast<size_t>(lens)];
                }
            }
            if (lit_ones < kLeastLit * kDirections) {
                continue;
            }
            found.known = true;
            if (dark_ones > kMostDark * lit_ones) {
                found.width = std::min(found.width, std::max(past - kStep - kEdge, 0.0));
                break;
            }
        }
    }
    return found;
}
