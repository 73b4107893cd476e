#include "seam/turn_search.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "projection/parallel.h"

namespace {

constexpr int directions_of(double degrees) {
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): of positive angles, and lround is no constant expression
    return static_cast<int>(degrees / Ring::kDegreesPerDirection + 0.5);
}

constexpr int kMostTurn = directions_of(10);
// What is wider says little about the turn (the sky's brightness does, even of another shot), and what is finer is
// grain.
constexpr int kWidest = directions_of(20);
constexpr double kFinest = directions_of(0.1);
constexpr double kLeastContrast = 1;      // steps of Y
constexpr double kLeastConfidence = 0.2;  // below it a turn is a guess

// The whole circle is compared in steps of so many directions, and the best of them then in single ones.
constexpr int kCoarse = 4;
static_assert(Ring::kDirections % kCoarse == 0 && kMostTurn % kCoarse == 0, "coarse steps come round");

// The row with what comes before and after it around the ring.
cv::Mat wrapped(const cv::Mat& row, int margin) {
    cv::Mat result;
    cv::copyMakeBorder(row, result, 0, 0, margin, margin, cv::BORDER_WRAP);
    return result;
}

cv::Mat smoothed(const cv::Mat& row) {
    constexpr int kMargin = 3 * static_cast<int>(kFinest);
    cv::Mat result;
    cv::GaussianBlur(wrapped(row, kMargin), result, cv::Size(2 * kMargin + 1, 1), kFinest);
    return result.colRange(kMargin, kMargin + row.cols);
}

cv::Mat surroundings_sum(const cv::Mat& row) {
    constexpr int kMargin = kWidest / 2;
    cv::Mat result;
    cv::boxFilter(wrapped(row, kMargin), result, CV_32F, cv::Size(2 * kMargin + 1, 1), cv::Point(-1, -1), false);
    return result.colRange(kMargin, kMargin + row.cols);
}

// What a row shows between the two widths, as a signal about 0, and where it counts (1) or not (0). CV_32FC1.
struct Signal {
    cv::Mat detail;
    cv::Mat counts;
};

Signal signal_of(const cv::Mat& samples) {
    Signal signal;
    usable(samples).convertTo(signal.counts, CV_32F, 1.0 / 255);
    cv::Mat values;
    samples.convertTo(values, CV_32F);
    const cv::Mat smooth = smoothed(values);
    const cv::Mat surroundings =
        surroundings_sum(smooth.mul(signal.counts)) / cv::max(surroundings_sum(signal.counts), 1);
    signal.detail = (smooth - surroundings).mul(signal.counts);
    return signal;
}

// Counts where all that it is the mean of does.
Signal coarsened(const Signal& signal) {
    const cv::Size size(signal.detail.cols / kCoarse, 1);
    cv::Mat detail;
    cv::Mat share;
    cv::resize(signal.detail, detail, size, 0, 0, cv::INTER_AREA);
    cv::resize(signal.counts, share, size, 0, 0, cv::INTER_AREA);
    Signal coarse;
    cv::threshold(share, coarse.counts, 0.999, 1, cv::THRESH_BINARY);
    coarse.detail = detail.mul(coarse.counts);
    return coarse;
}

// Two rows that show the same when lens 2's is shifted rightly.
class RowPair {
  public:
    // What lens 2 shows is taken twice around, so that any shift is a part of it.
    RowPair(const Signal& one, const Signal& two)
        : detail1_(one.detail),
          squares1_(one.detail.mul(one.detail)),
          counts1_(one.counts),
          detail2_(cv::repeat(two.detail, 1, 2)),
          squares2_(cv::repeat(two.detail.mul(two.detail), 1, 2)),
          counts2_(cv::repeat(two.counts, 1, 2)) {}

    double product(int shift) const { return detail1_.dot(part(detail2_, shift)); }
    // Of what counts in both.
    double square1(int shift) const { return squares1_.dot(part(counts2_, shift)); }
    double square2(int shift) const { return counts1_.dot(part(squares2_, shift)); }

    double mean_square() const {
        return (cv::sum(squares1_)[0] + cv::sum(squares2_)[0] / 2) /
               std::max(cv::sum(counts1_)[0] + cv::sum(counts2_)[0] / 2, 1.0);
    }

  private:
    cv::Mat part(const cv::Mat& twice, int shift) const {
        const int first = (shift + detail1_.cols) % detail1_.cols;
        return twice.colRange(first, first + detail1_.cols);
    }

    cv::Mat detail1_, squares1_, counts1_;
    cv::Mat detail2_, squares2_, counts2_;
};
using RowPairs = std::vector<RowPair>;

// How alike the rings are when lens 2's is shifted: -1 to 1.
double likeness(const RowPairs& rows, int shift) {
    double product = 0;
    double square1 = 0;
    double square2 = 0;
    for (const RowPair& row : rows) {
        product += row.product(shift);
        square1 += row.square1(shift);
        square2 += row.square2(shift);
    }
    return product / std::max(std::sqrt(square1 * square2), 1.0);
}

double contrast_of(const RowPairs& rows) {
    double square = 0;
    for (const RowPair& row : rows) {
        square += row.mean_square() / static_cast<double>(rows.size());
    }
    return std::sqrt(square);
}

// The best shift within reach, and how alike the rings are at the best of those that must be wrong. Coarse steps.
struct CoarseTurn {
    int shift;
    double elsewhere;
};

CoarseTurn coarse_turn(const RowPairs& rows) {
    constexpr int kShifts = Ring::kDirections / kCoarse;
    constexpr int kReach = kMostTurn / kCoarse;
    std::vector<double> at_shift(kShifts);
    in_parallel(kShifts, [&](const cv::Range& shifts) {
        for (int shift = shifts.start; shift < shifts.end; ++shift) {
            at_shift[static_cast<size_t>(shift)] = likeness(rows, shift);
        }
    });
    const auto at = [&](int shift) { return at_shift[static_cast<size_t>((shift + 2 * kShifts) % kShifts)]; };
    CoarseTurn turn = {0, 0};
    for (int shift = -kReach; shift <= kReach; ++shift) {
        turn.shift = at(shift) > at(turn.shift) ? shift : turn.shift;
    }
    for (int shift = turn.shift + kReach; shift <= turn.shift + kShifts - kReach; ++shift) {
        turn.elsewhere = std::max(turn.elsewhere, at(shift));
    }
    return turn;
}

// Where the rings are most alike near a coarse step, by the parabola through the best shift and its neighbours.
struct Peak {
    double shift;
    double height;
};

Peak peak_near(const RowPairs& rows, int coarse) {
    int best = coarse * kCoarse;
    double height = likeness(rows, best);
    for (int shift = (coarse - 1) * kCoarse; shift <= (coarse + 1) * kCoarse; ++shift) {
        const double here = likeness(rows, shift);
        if (here > height) {
            height = here;
            best = shift;
        }
    }
    const double before = likeness(rows, best - 1);
    const double after = likeness(rows, best + 1);
    const double curvature = before - 2 * height + after;
    return {best + (curvature < 0 ? std::clamp(0.5 * (before - after) / curvature, -0.5, 0.5) : 0), height};
}

}  // namespace

FoundTurn find_turn(const std::vector<SeamPair>& pairs) {
    RowPairs fine;
    RowPairs coarse;
    for (const SeamPair& pair : pairs) {
        for (const SeamPair::Rows& rows : pair.rows_alike()) {
            const Signal one = signal_of(rows.lens1);
            const Signal two = signal_of(rows.lens2);
            fine.emplace_back(one, two);
            coarse.emplace_back(coarsened(one), coarsened(two));
        }
    }
    FoundTurn found;
    found.is_clear = contrast_of(fine) >= kLeastContrast;
    if (!found.is_clear) {
        return found;
    }
    const CoarseTurn turn = coarse_turn(coarse);
    const Peak peak = peak_near(fine, turn.shift);
    found.confidence = std::max(0.0, (peak.height - turn.elsewhere) / std::max(1 - turn.elsewhere, 1e-6));
    if (found.confidence >= kLeastConfidence) {
        found.directions = peak.shift;
    }
    return found;
}
