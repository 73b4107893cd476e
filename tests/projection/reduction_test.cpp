#include "projection/reduction.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

namespace {

TEST(ReducePlane, EachPixelIsTheRoundedMeanOfItsBlock) {
    for (const int columns : {2, 4, 8}) {
        for (const int rows : {columns, 2 * columns}) {
            cv::Mat wide(rows * 13, columns * 37 + 5, CV_8UC1);  // with spare columns, which are left out
            cv::randu(wide, 0, 256);
            cv::Mat reduced(13, 37, CV_8UC1);
            reduce_plane(wide.data, static_cast<ptrdiff_t>(wide.step), columns, rows, &reduced);
            for (int y = 0; y < reduced.rows; ++y) {
                for (int x = 0; x < reduced.cols; ++x) {
                    const double mean = cv::mean(wide(cv::Rect(x * columns, y * rows, columns, rows)))[0];
                    ASSERT_EQ(reduced.at<uint8_t>(y, x), static_cast<int>(std::floor(mean + 0.5))) << columns;
                }
            }
        }
    }
}

TEST(ReducePlane, WhiteStaysWhite) {
    const cv::Mat white(160, 80, CV_8UC1, cv::Scalar(255));
    cv::Mat reduced(10, 10, CV_8UC1);
    reduce_plane(white.data, 80, 8, 16, &reduced);
    EXPECT_EQ(cv::countNonZero(reduced != 255), 0);
}

// ---- The stack ----

constexpr int kLens = 48;

// A ramp in both directions: between its pixels' middles it means the same at every size.
double ramp(double x, double y, double start) {
    return start + 0.6 * x + 1.1 * y;
}

cv::Mat ramp_plane(int rows, int cols, double start) {
    cv::Mat plane(rows, cols, CV_8UC1);
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < cols; ++x) {
            plane.at<uint8_t>(y, x) = static_cast<uint8_t>(std::lround(ramp(x, y, start)));
        }
    }
    return plane;
}

constexpr double kLens1 = 10, kLens2 = 100, kLeft = 30, kRight = 140;

// A band of `rows` rows, rearranged: two copies of the first row, one of the last, for each half in its turn.
cv::Mat rearranged_band(int rows) {
    const cv::Mat left = ramp_plane(rows, kLens, kLeft);
    const cv::Mat right = ramp_plane(rows, kLens, kRight);
    cv::Mat band;
    cv::vconcat(std::vector<cv::Mat>{left.row(0), left.row(0), left, left.row(rows - 1), right.row(0), right,
                                     right.row(rows - 1), right.row(rows - 1)},
                band);
    return band;
}

class StackReductionTest : public testing::TestWithParam<int> {
  protected:
    // What the reduced stack holds at a position of the whole one.
    double value_at(float x, float y, const StackReduction& reduction) const {
        cv::Mat lenses, stack;
        cv::vconcat(ramp_plane(kLens, kLens, kLens1), ramp_plane(kLens, kLens, kLens2), lenses);
        cv::Mat reduced(2 * kLens / GetParam(), kLens / GetParam(), CV_8UC1);
        reduce_plane(lenses.data, kLens, GetParam(), GetParam(), &reduced);
        stack = reduced;
        if (!reduction.band().empty()) {
            cv::vconcat(reduced, reduction.band(), stack);
        }
        reduction.move_positions(&x, &y, 1);
        cv::Mat sampled;
        cv::remap(stack, sampled, cv::Mat(1, 1, CV_32FC1, cv::Scalar(x)), cv::Mat(1, 1, CV_32FC1, cv::Scalar(y)),
                  cv::INTER_LINEAR, cv::BORDER_CONSTANT, 0);
        return sampled.at<uint8_t>(0, 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Factors, StackReductionTest, testing::Values(2, 4, 8));

TEST_P(StackReductionTest, PositionsShowWhatTheyShowedBefore) {
    const StackReduction reduction(GetParam(), {kLens, kLens}, cv::Mat());
    for (const float x : {8.0f, 20.25f, 31.0f, 39.0f}) {
        for (const float y : {8.0f, 17.5f, 39.0f}) {
            EXPECT_NEAR(value_at(x, y, reduction), ramp(x, y, kLens1), 1.2) << x << ", " << y;
            EXPECT_NEAR(value_at(x, y + kLens, reduction), ramp(x, y, kLens2), 1.2) << x << ", " << y;
        }
    }
}

TEST_P(StackReductionTest, TheBandsHalvesStayApart) {
    for (const int rows : {16, 21, 5}) {  // of these factors multiples, and not
        const StackReduction reduction(GetParam(), {kLens, kLens}, rearranged_band(rows));
        const double slack = 1.2 + 1.1 * GetParam() / 2;  // the first and last block stand for their outer halves too
        for (const float x : {8.0f, 20.25f, 39.0f}) {
            for (float row = 0; row < static_cast<float>(rows) - 0.5f; row += 0.5f) {
                const float left = 2 * kLens + 2 + row;
                const float right = 2 * kLens + static_cast<float>(rows) + 4 + row;
                EXPECT_NEAR(value_at(x, left, reduction), ramp(x, row, kLeft), slack) << rows << ": " << row;
                EXPECT_NEAR(value_at(x, right, reduction), ramp(x, row, kRight), slack) << rows << ": " << row;
            }
        }
        // At the ends of the halves too nothing black is mixed in.
        for (const float x : {0.0f, kLens - 1.0f}) {
            const float y = 2 * kLens + 2;
            EXPECT_NEAR(value_at(x, y, reduction), ramp(x, 0, kLeft), 1.2 + 1.1 * GetParam()) << x;
        }
        EXPECT_NEAR(value_at(20, kLens + 39, reduction), ramp(20, 39, kLens2), 1.2);
    }
}

}  // namespace
