#include "projection/reduction.h"

#include <algorithm>
#include <vector>

#include "projection/parallel.h"

namespace {

// Sums of `rows` rows, an even number. To be vectorised.
void add_rows(const uint8_t* source, ptrdiff_t stride, int rows, int columns, uint16_t* sums) {
    for (int row = 0; row < rows; row += 2) {
        const uint8_t* upper = source + row * stride;
        const uint8_t* lower = upper + stride;
        for (int i = 0; i < columns; ++i) {
            const int before = row == 0 ? 0 : sums[i];
            sums[i] = static_cast<uint16_t>(before + upper[i] + lower[i]);
        }
    }
}

// The sums of neighbours, half as many.
void add_pairs(const uint16_t* __restrict sums, int pairs, uint16_t* __restrict result) {
    for (int i = 0; i < pairs; ++i) {
        result[i] = static_cast<uint16_t>(sums[2 * i] + sums[2 * i + 1]);
    }
}

int log2_of(int power) {
    int exponent = 0;
    while (power >> (exponent + 1) != 0) {
        ++exponent;
    }
    return exponent;
}

}  // namespace

void reduce_plane(const uint8_t* source, ptrdiff_t stride, int columns, int rows, cv::Mat* target) {
    const int shift = log2_of(columns * rows);
    const int width = target->cols * columns;
    in_parallel(target->rows, [&](const cv::Range& part) {
        std::vector<uint16_t> sums(static_cast<size_t>(width));
        std::vector<uint16_t> spare(static_cast<size_t>(width) / 2);
        for (int y = part.start; y < part.end; ++y) {
            add_rows(source + static_cast<ptrdiff_t>(y) * rows * stride, stride, rows, width, sums.data());
            uint16_t* from = sums.data();
            uint16_t* to = spare.data();
            for (int count = width / 2; count >= target->cols; count /= 2) {
                add_pairs(from, count, to);
                std::swap(from, to);
            }
            uint8_t* means = target->ptr(y);
            for (int x = 0; x < target->cols; ++x) {
                means[x] = static_cast<uint8_t>((from[x] + (1 << (shift - 1))) >> shift);
            }
        }
    });
}

namespace {

// The rearranged band has its left half behind two copies of the first row, the right half behind four more rows.
constexpr int kLeftHalf = 2;
constexpr int kRightHalf = 4;

// One half of the strip, reduced, with a copy of its first row before and one of its last row behind it.
cv::Mat reduced_half(const cv::Mat& half, int factor, int rows) {
    cv::Mat whole;  // blocks; isolated from the other half, which lies around it
    cv::copyMakeBorder(half, whole, 0, rows * factor - half.rows, 0, 0, cv::BORDER_REPLICATE | cv::BORDER_ISOLATED);
    cv::Mat reduced(rows, half.cols / factor, CV_8UC1);
    reduce_plane(whole.data, static_cast<ptrdiff_t>(whole.step), factor, factor, &reduced);
    cv::copyMakeBorder(reduced, reduced, 1, 1, 0, 0, cv::BORDER_REPLICATE);
    return reduced;
}

}  // namespace

StackReduction::StackReduction(int factor, ImageSize lens, const cv::Mat& band) : factor_(factor), lens_(lens) {
    strip_rows_ = (band.rows - 6) / 2;
    if (band.empty() || strip_rows_ <= 0) {
        return;
    }
    reduced_rows_ = (strip_rows_ + factor - 1) / factor;
    const cv::Mat left = band.rowRange(kLeftHalf, kLeftHalf + strip_rows_);
    const cv::Mat right = band.rowRange(strip_rows_ + kRightHalf, 2 * strip_rows_ + kRightHalf);
    cv::vconcat(reduced_half(left, factor, reduced_rows_), reduced_half(right, factor, reduced_rows_), band_);
}

void StackReduction::move_positions(float* x, float* y, int count) const {
    // The middle of the first pixel of both lies at the corner of the picture by half of its own width.
    const auto reduced = [scale = 1.0f / static_cast<float>(factor_)](float position) {
        return (position + 0.5f) * scale - 0.5f;
    };
    for (int i = 0; i < count; ++i) {
        x[i] = reduced(x[i]);
    }
    if (band_.empty()) {
        for (int i = 0; i < count; ++i) {
            y[i] = reduced(y[i]);
        }
        return;
    }
    const auto lenses = static_cast<float>(2 * lens_.height);
    const int reduced_lenses = 2 * lens_.height / factor_;
    const int reduced_columns = lens_.width / factor_;
    const auto last_column = static_cast<float>(reduced_columns - 1);
    const auto rows = static_cast<float>(reduced_rows_);
    for (int i = 0; i < count; ++i) {
        const float in_band = y[i] - lenses;
        if (in_band < 1) {
            y[i] = reduced(y[i]);
            continue;
        }
        const bool right = in_band >= static_cast<float>(strip_rows_ + 3);
        const float row = right ? in_band - static_cast<float>(strip_rows_ + kRightHalf) : in_band - kLeftHalf;
        y[i] = static_cast<float>(reduced_lenses) + (right ? rows + 3 : 1) + std::clamp(reduced(row), -1.0f, rows);
        // The strip ends in whole pixels; what is beside them is black.
        x[i] = std::clamp(x[i], 0.0f, last_column);
    }
}
