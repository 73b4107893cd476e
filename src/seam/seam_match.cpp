#include "seam/seam_match.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "media/full_range.h"
#include "nq360.h"

namespace {

constexpr double kLeastCompared = 0.05;    // of the seam
constexpr double kLeastConfidence = 0.25;  // that the halves are of one shot
constexpr double kMostGain = 16;           // that an export takes
constexpr double kNeutralChroma = 128;

double rounded(double number, double unit) {
    return std::round(number / unit) * unit + 0.0;  // not -0
}

double mean_of_middle_half(std::vector<double> numbers) {
    if (numbers.empty()) {
        return 0;
    }
    std::sort(numbers.begin(), numbers.end());
    const auto quarter = static_cast<std::ptrdiff_t>(numbers.size() / 4);
    double sum = 0;
    std::for_each(numbers.begin() + quarter, numbers.end() - quarter, [&](double number) { sum += number; });
    return sum / static_cast<double>(numbers.end() - numbers.begin() - 2 * quarter);
}

// The values of a plane, and what it is where nothing is to be seen: black or colourless.
struct PlaneValues {
    std::vector<SeamValues> values;
    size_t plane;
    std::array<double, 2> zeros;
};

double changed(double value, const LensChange& change, size_t plane, double zero) {
    const int offset = change.corrections[plane] == CORRECT_NONE ? 0 : change.corrections[plane];
    return std::clamp((value - zero) * change.gains[plane] + zero + offset, 0.0, 255.0);
}

// As the stitcher changes them, without its rounding.
std::vector<SeamValues> changed(const PlaneValues& seam, const LensChanges& changes) {
    std::vector<SeamValues> values;
    for (const SeamValues& value : seam.values) {
        values.push_back({changed(value.lens1, changes[0], seam.plane, seam.zeros[0]),
                          changed(value.lens2, changes[1], seam.plane, seam.zeros[1])});
    }
    return values;
}

// What lens 2 has more. As deaf to objects that only one lens sees as the median, and finer.
double difference(const std::vector<SeamValues>& values) {
    std::vector<double> differences;
    differences.reserve(values.size());
    for (const SeamValues& value : values) {
        differences.push_back(value.lens2 - value.lens1);
    }
    return mean_of_middle_half(std::move(differences));
}

double distance(const std::vector<SeamValues>& values) {
    std::vector<double> distances;
    distances.reserve(values.size());
    for (const SeamValues& value : values) {
        distances.push_back(std::abs(value.lens2 - value.lens1));
    }
    return mean_of_middle_half(std::move(distances));
}

// The slope of the line through zero that lies nearest to the points (lens 1, lens 2), which err alike in both; 1 where
// they lie too near to zero to tell.
double slope(const std::vector<SeamValues>& values) {
    constexpr double kLeastSpread = 3;
    double square1 = 0;
    double square2 = 0;
    double product = 0;
    for (const SeamValues& value : values) {
        square1 += value.lens1 * value.lens1;
        square2 += value.lens2 * value.lens2;
        product += value.lens1 * value.lens2;
    }
    if (product <= 0 || product < kLeastSpread * kLeastSpread * static_cast<double>(values.size())) {
        return 1;
    }
    const double apart = square2 - square1;
    return (apart + std::sqrt(apart * apart + 4 * product * product)) / (2 * product);
}

// Lens 2's factor against lens 1's, without the quarter of the directions that fit worst: what only one lens sees.
double factor(std::vector<SeamValues> values) {
    constexpr int kRounds = 4;
    double found = slope(values);
    const auto kept = values.begin() + static_cast<std::ptrdiff_t>(values.size() * 3 / 4);
    for (int round = 0; round < kRounds; ++round) {
        const auto error = [found](const SeamValues& value) { return std::abs(value.lens2 - found * value.lens1); };
        std::nth_element(values.begin(), kept, values.end(),
                         [&](const SeamValues& a, const SeamValues& b) { return error(a) < error(b); });
        found = slope({values.begin(), kept});
    }
    return found;
}

// Whole numbers that close the step, half of it on either lens.
void correct(const PlaneValues& seam, LensChanges* changes) {
    const int whole = static_cast<int>(std::lround(difference(changed(seam, *changes))));
    (*changes)[0].corrections[seam.plane] = whole / 2;
    (*changes)[1].corrections[seam.plane] = whole / 2 - whole;
}

// A factor that makes lens 2 as bright as lens 1: so the panorama is as lens 1's exposure has it, which its metadata
// tells, and steps of the scene's own are not made larger.
void gain(const PlaneValues& seam, LensChanges* changes) {
    std::vector<SeamValues> from_zero = changed(seam, *changes);
    for (SeamValues& value : from_zero) {
        value = {value.lens1 - seam.zeros[0], value.lens2 - seam.zeros[1]};
    }
    double& gain2 = (*changes)[1].gains[seam.plane];
    gain2 = std::min(rounded(gain2 / factor(std::move(from_zero)), 0.001), kMostGain);
}

// Whether both are one picture, or one picture compressed twice: the lenses look opposite ways, and never see the same.
bool is_one_picture(const AVFrame* frame1, const AVFrame* frame2) {
    constexpr double kLeastContrast = 4;
    constexpr double kMostDifference = 1.5;
    const cv::Size small(48, 48);
    cv::Mat middles[2];
    for (int lens = 0; lens < 2; ++lens) {
        const AVFrame* frame = lens == 0 ? frame1 : frame2;
        const cv::Mat luma(frame->height, frame->width, CV_8UC1, frame->data[0],
                           static_cast<size_t>(frame->linesize[0]));
        const int quarter = frame->width / 4;
        const cv::Mat middle = luma(cv::Rect(quarter, quarter, 2 * quarter, 2 * quarter));
        cv::resize(middle, middles[lens], small, 0, 0, cv::INTER_AREA);
    }
    cv::Scalar mean;
    cv::Scalar contrast;
    cv::meanStdDev(middles[0], mean, contrast);
    const double apart = cv::norm(middles[0], middles[1], cv::NORM_L1) / static_cast<double>(small.area());
    return contrast[0] > kLeastContrast && apart < kMostDifference;
}

}  // namespace

void SeamMatcher::look_at(const AVFrame* frame1, const AVFrame* frame2) {
    pairs_.emplace_back(frame1, frame2, changes_[0].turn, changes_[1].turn);
    blacks_ = {has_full_range(frame1) ? 0.0 : 16.0, has_full_range(frame2) ? 0.0 : 16.0};
    is_one_picture_ = is_one_picture_ && is_one_picture(frame1, frame2);
}

// Of all pairs together.
std::vector<SeamValues> SeamMatcher::values(int plane, int shift) const {
    std::vector<SeamValues> all;
    for (const SeamPair& pair : pairs_) {
        const std::vector<SeamValues> some = pair.values(plane, shift);
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

SeamMatch SeamMatcher::match() const {
    const FoundTurn found = find_turn(pairs_);
    const int shift = static_cast<int>(std::lround(found.directions));
    SeamMatch match;
    match.turn = rounded(found.directions * Ring::kDegreesPerDirection, 0.01);
    match.confidence = found.confidence;
    match.compared = 1;

    LensChanges corrected = changes_;
    for (LensChange& change : corrected) {
        change.corrections = {0, 0, 0};
    }
    LensChanges gained = corrected;
    for (size_t plane = 0; plane < 3; ++plane) {
        const std::array<double, 2> zeros =
            plane == 0 ? blacks_ : std::array<double, 2>{kNeutralChroma, kNeutralChroma};
        const PlaneValues untouched = {values(static_cast<int>(plane), 0), plane, zeros};
        const PlaneValues turned = {values(static_cast<int>(plane), shift), plane, zeros};
        const double share =
            static_cast<double>(turned.values.size()) / static_cast<double>(Ring::kDirections * pairs_.size());
        match.compared = std::min(match.compared, share);
        if (share >= kLeastCompared) {
            correct(turned, &corrected);
            gain(turned, &gained);
        }
        match.step[plane] = distance(changed(untouched, changes_));
        match.step_turned[plane] = distance(changed(turned, changes_));
        match.step_corrected[plane] = distance(changed(turned, corrected));
        match.step_gained[plane] = distance(changed(turned, gained));
    }
    for (size_t lens = 0; lens < 2; ++lens) {
        match.corrections[lens] = corrected[lens].corrections;
        match.gains[lens] = gained[lens].gains;
    }
    match.warning = warning(match, found);
    return match;
}

std::string SeamMatcher::warning(const SeamMatch& match, const FoundTurn& found) const {
    if (is_one_picture_) {
        return "both halves show the same picture";
    }
    if (match.compared < kLeastCompared) {
        return "too little of the seam is neither black nor white to compare the lenses";
    }
    if (found.is_clear && match.confidence < kLeastConfidence) {
        return "the halves show different things where they should meet: they may be of two shots";
    }
    return "";
}
