// The stitching tables: create_equidistantmap beside the plain loop it replaces, and beside the sines and arc
// functions alone that the formulas call for. Each run covers the tables of luma and chroma.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>

#include "projection/soavfunc.h"

namespace {

constexpr double kRightAngle = CV_PI / 2;

struct Setting {
    const char* name;
    ImageSize equsize;
    ImageSize projsize;
    int radius;
    RotationCorrect rc;
};

const Setting kSettings[] = {
    {"3840x1920 level", {3840, 1920}, {1936, 1936}, 907, {}},
    {"3840x1920 turned", {3840, 1920}, {1936, 1936}, 907, {kRightAngle, -kRightAngle, 0, 0, kRightAngle}},
    {"7680x3840 level", {7680, 3840}, {3888, 3888}, 1821, {}},
    {"7680x3840 turned", {7680, 3840}, {3888, 3888}, 1821, {kRightAngle, -kRightAngle, 0, 0, kRightAngle}},
};

ImageSize half(ImageSize size) {
    return {size.width / 2, size.height / 2};
}

void plain_plane(cv::Mat* mapx, cv::Mat* mapy, ImageSize equsize, ImageSize projsize, int radius,
                 const RotationCorrect& rc) {
    mapx->create(equsize.height, equsize.width, CV_32FC1);
    mapy->create(equsize.height, equsize.width, CV_32FC1);
    const ImagePoint center{projsize.width / 2, projsize.height / 2};
    for (int y = 0; y < equsize.height; ++y) {
        for (int x = 0; x < equsize.width; ++x) {
            double u, v;
            uvpoint_from_equidistantxypoint(&u, &v, x, y, equsize, projsize, center, radius, 0, rc.frame1angle,
                                            rc.frame2angle, rc.xangle, rc.zangle, rc.yangle);
            mapx->at<float>(y, x) = static_cast<float>(u);
            mapy->at<float>(y, x) = static_cast<float>(v);
        }
    }
}

void plain_loop(const Setting& setting) {
    EquidistantTransMap map;
    plain_plane(&map.ymapx, &map.ymapy, setting.equsize, setting.projsize, setting.radius, setting.rc);
    plain_plane(&map.uvmapx, &map.uvmapy, half(setting.equsize), half(setting.projsize), setting.radius / 2,
                setting.rc);
    benchmark::DoNotOptimize(map.ymapx.data);
}

void build_map(const Setting& setting) {
    const EquidistantTransMap map =
        create_equidistantmap(setting.equsize, setting.projsize, setting.radius, 0, setting.rc);
    benchmark::DoNotOptimize(map.ymapx.data);
}

// Calls `functions` with two numbers of -1 to 1 for every entry of both planes, on all threads.
template <typename Functions>
void each_entry(const Setting& setting, Functions functions) {
    for (const ImageSize size : {setting.equsize, half(setting.equsize)}) {
        cv::parallel_for_(cv::Range(0, size.height), [&](const cv::Range& rows) {
            double sum = 0;
            for (int y = rows.start; y < rows.end; ++y) {
                for (int x = 0; x < size.width; ++x) {
                    sum += functions(2.0 * x / size.width - 1, 2.0 * y / size.height - 1);
                }
            }
            benchmark::DoNotOptimize(sum);
        });
    }
}

// With the sphere's angles hoisted: the arc cosine, the azimuth and its sine and cosine.
void sines_and_arcs_alone(const Setting& setting) {
    each_entry(setting, [](double a, double b) {
        const double psi = std::atan2(a, b);
        return std::acos(b) + std::sin(psi) + std::cos(psi);
    });
}

// What angle sums leave of that: the arc cosine.
void arc_cosine_alone(const Setting& setting) {
    each_entry(setting, [](double, double b) { return std::acos(b); });
}

double milliseconds(void (*work)(const Setting&), const Setting& setting) {
    const auto start = std::chrono::steady_clock::now();
    work(setting);
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// One iteration times all four, one after the other, so that they meet the same load. The counters are medians:
// milliseconds, and how many times as long as create_equidistantmap each of the others takes.
void BM_Map(benchmark::State& state) {
    const Setting& setting = kSettings[state.range(0)];
    struct Other {
        const char* name;
        void (*work)(const Setting&);
        std::vector<double> times, ratios;
    } others[] = {{"plain", plain_loop, {}, {}},
                  {"sines_arcs", sines_and_arcs_alone, {}, {}},
                  {"acos", arc_cosine_alone, {}, {}}};
    for (auto _ : state) {
        const double built = milliseconds(build_map, setting);
        state.SetIterationTime(built / 1000);
        for (Other& other : others) {
            other.times.push_back(milliseconds(other.work, setting));
            other.ratios.push_back(other.times.back() / built);
        }
    }
    for (const Other& other : others) {
        state.counters[std::string(other.name) + "_ms"] = median(other.times);
        state.counters[std::string(other.name) + "/map"] = median(other.ratios);
    }
    state.SetLabel(std::string(setting.name) + ", " + std::to_string(cv::getNumThreads()) + " threads");
}
BENCHMARK(BM_Map)->DenseRange(0, 3)->UseManualTime()->Iterations(7)->Unit(benchmark::kMillisecond);

}  // namespace
