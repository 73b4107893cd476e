#include "seam/turn_search.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

namespace {

constexpr int kDirections = Ring::kDirections;

constexpr int directions_of(double degrees) {
    return static_cast<int>(degrees / Ring::kDegreesPerDirection + 0.5);
}

constexpr int kMostTurn = directions_of(10);
// What is wider says little about the turn (the sky's brightness does, even of another shot), and what is finer is
// grain.
constexpr int kWidest = directions_of(20);
constexpr double kFinest = directions_of(0.1);
constexpr double kLeastContrast = 1;      // steps of Y
constexpr double kLeastConfidence = 0.2;  // below it a turn is a guess

// Blurred around the ring.
cv::Mat blurred(const cv::Mat& row, const cv::Mat& kernel) {
    const int margin = kernel.cols / 2;
    cv::Mat wrapped;
    cv::copyMakeBorder(row, wrapped, 0, 0, margin, margin, cv::BORDER_WRAP);
    cv::Mat result;
    cv::filter2D(wrapped, result, CV_32F, kernel);
    return result.colRange(margin, margin + row.cols).clone();
}

// What a row shows between the two widths, as a signal about 0, and where it counts (1) or not (0).
struct Signal {
    cv::Mat detail;  // CV_32FC1
    cv::Mat counts;  // CV_32FC1
};

Signal signal_of(const cv::Mat& samples) {
    static const cv::Mat fine = cv::getGaussianKernel(6 * static_cast<int>(kFinest) + 1, kFinest, CV_32F).t();
    static const cv::Mat wide = cv::Mat::ones(1, kWidest + 1, CV_32FC1);
    Signal signal;
    usable(samples).convertTo(signal.counts, CV_32F, 1.0 / 255);
    cv::Mat values;
    samples.convertTo(values, CV_32F);
    const cv::Mat smooth = blurred(values, fine);
    const cv::Mat counted = cv::max(blurred(signal.counts, wide), 1);
    const cv::Mat surroundings = blurred(smooth.mul(signal.counts), wide) / counted;
    signal.detail = (smooth - surroundings).mul(signal.counts);
    return signal;
}

cv::Mat spectrum_of(const cv::Mat& signal) {
    cv::Mat spectrum;
    cv::dft(signal, spectrum);
    return spectrum;
}

// The sum over all rows of a(x) * b(x + shift), for every shift around the ring at once.
class Correlation {
  public:
    void add(const cv::Mat& a, const cv::Mat& b) {
        cv::Mat product;
        cv::mulSpectrums(spectrum_of(b), spectrum_of(a), product, 0, true);
        sum_ = sum_.empty() ? product : cv::Mat(sum_ + product);
    }
    cv::Mat at_all_shifts() const {
        cv::Mat result;
        cv::dft(sum_, result, cv::DFT_INVERSE | cv::DFT_SCALE);
        return result;
    }

  private:
    cv::Mat sum_;
};

// How alike the rings are at each shift of lens 2's, -1 to 1, of what counts in both.
struct Likeness {
    cv::Mat at_shift;  // CV_32FC1
    double contrast = 0;

    float operator()(int shift) const { return at_shift.at<float>(0, (shift + kDirections) % kDirections); }
};

Likeness likeness_of(const std::vector<SeamPair>& pairs) {
    Correlation products;
    Correlation squares1;
    Correlation squares2;
    double square_sum = 0;
    double count = 0;
    for (const SeamPair& pair : pairs) {
        for (const SeamPair::Rows& rows : pair.rows_alike()) {
            const Signal one = signal_of(rows.lens1);
            const Signal two = signal_of(rows.lens2);
            products.add(one.detail, two.detail);
            squares1.add(one.detail.mul(one.detail), two.counts);
            squares2.add(one.counts, two.detail.mul(two.detail));
            square_sum += one.detail.dot(one.detail) + two.detail.dot(two.detail);
            count += cv::sum(one.counts)[0] + cv::sum(two.counts)[0];
        }
    }
    Likeness likeness;
    likeness.contrast = std::sqrt(square_sum / std::max(count, 1.0));
    cv::Mat norm;
    cv::sqrt(cv::max(squares1.at_all_shifts(), 1).mul(cv::max(squares2.at_all_shifts(), 1)), norm);
    likeness.at_shift = products.at_all_shifts() / norm;
    return likeness;
}

// Where the parabola through three neighbouring values is highest, from the middle one.
double peak_between(double before, double middle, double after) {
    const double curvature = before - 2 * middle + after;
    return curvature < 0 ? std::clamp(0.5 * (before - after) / curvature, -0.5, 0.5) : 0;
}

}  // namespace

FoundTurn find_turn(const std::vector<SeamPair>& pairs) {
    FoundTurn found;
    const Likeness likeness = likeness_of(pairs);
    found.is_clear = likeness.contrast >= kLeastContrast;
    if (!found.is_clear) {
        return found;
    }
    int best = 0;
    for (int shift = -kMostTurn; shift <= kMostTurn; ++shift) {
        best = likeness(shift) > likeness(best) ? shift : best;
    }
    double elsewhere = 0;  // the best of what must be wrong
    for (int shift = best + kMostTurn; shift < best + kDirections - kMostTurn; ++shift) {
        elsewhere = std::max<double>(elsewhere, likeness(shift));
    }
    found.confidence = std::max(0.0, (likeness(best) - elsewhere) / std::max(1 - elsewhere, 1e-6));
    if (found.confidence >= kLeastConfidence) {
        found.directions = best + peak_between(likeness(best - 1), likeness(best), likeness(best + 1));
    }
    return found;
}
