// A pair whose second lens is brighter and turned, matched and exported: the seam closes as if they had never differed.
#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/picture.h"
#include "support/samples.h"
#include "support/shot_jobs.h"

using namespace test_support;

namespace {

// The largest step across the seam, which is the middle row: between the means of 8 pixels on either side, of all
// columns.
double largest_step(const cv::Mat& luma) {
    const int seam = luma.rows / 2;
    double largest = 0;
    for (int x = 0; x < luma.cols; ++x) {
        const double above = cv::mean(luma(cv::Rect(x, seam - 8, 1, 8)))[0];
        const double below = cv::mean(luma(cv::Rect(x, seam, 1, 8)))[0];
        largest = std::max(largest, std::abs(above - below));
    }
    return largest;
}

class MatchedExport : public testing::TestWithParam<const char*> {
  protected:
    // Of the panorama with a mixed seam.
    double step_of(NQ360_EXPORT_OPTIONS options) {
        const std::string output = dir_.file("panorama.jpg");
        options.output = output.c_str();
        options.width = 3840;
        options.height = 1920;
        options.quality = 100;
        options.feather = 1.5;
        const Outcome outcome = export_with(options);
        EXPECT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
        return largest_step(plane_of(output, 'y'));
    }

    static std::vector<std::string> scene(const std::vector<std::string>& more) {
        std::vector<std::string> options = {"--size", "1936", "--scene", GetParam()};
        options.insert(options.end(), more.begin(), more.end());
        return options;
    }

    TempDir dir_;
};

void set(const nlohmann::json& values, double* target) {
    std::copy(values.begin(), values.end(), target);
}

}  // namespace

TEST_P(MatchedExport, ClosesTheSeamAsIfTheLensesDidNotDiffer) {
    const Shot alike = stills_in(dir_, scene({}));
    const double wanted = step_of(shot_options(alike.one, alike.two));

    const Shot unlike = stills_in(dir_, scene({"--factor", "1.35", "--turn2", "2"}));
    NQ360_EXPORT_OPTIONS options = shot_options(unlike.one, unlike.two);
    const nlohmann::json found = match(options).json();
    EXPECT_NEAR(found.at("turn").get<double>(), 2, 0.1);
    EXPECT_NEAR(found.at("gain1")[0].get<double>() / found.at("gain2")[0].get<double>(), 1.35, 1.35 * 0.03);
    options.turn2 = found.at("turn");
    set(found.at("gain1"), options.gain1);
    set(found.at("gain2"), options.gain2);
    EXPECT_LE(step_of(options), wanted + 1);
}

INSTANTIATE_TEST_SUITE_P(OfScene, MatchedExport, testing::Values("drawn", NQ360_TEST_DATA "/apollo17.png"),
                         [](const auto& scene) { return scene.index == 0 ? "Drawn" : "Moon"; });
