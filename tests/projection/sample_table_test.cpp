#include "projection/sample_table.h"

#include <cmath>
#include <limits>
#include <random>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "projection/angles.h"
#include "projection/plane_mapper.h"
#include "projection/seam_ring.h"

namespace {

struct Tables {
    cv::Mat x;
    cv::Mat y;
};

// Positions in and around a plane, with many exactly on pixels, on its border and just beyond.
Tables random_tables(int rows, int cols, int source_rows, int source_cols, unsigned seed) {
    Tables tables = {cv::Mat(rows, cols, CV_32FC1), cv::Mat(rows, cols, CV_32FC1)};
    std::mt19937 random(seed);
    const auto position = [&](int size) {
        std::uniform_real_distribution<float> anywhere(-3.0f, static_cast<float>(size) + 2.0f);
        const float value = anywhere(random);
        return random() % 4 == 0 ? std::round(value) : value;
    };
    for (int row = 0; row < rows; ++row) {
        for (int column = 0; column < cols; ++column) {
            tables.x.at<float>(row, column) = position(source_cols);
            tables.y.at<float>(row, column) = position(source_rows);
        }
    }
    return tables;
}

FramedPlane random_plane(int rows, int cols) {
    FramedPlane plane(rows, cols);
    cv::Mat pixels = plane.pixels();
    cv::randu(pixels, 0, 256);
    return plane;
}

cv::Mat sampled(const Tables& tables, const FramedPlane& plane) {
    cv::Mat target(tables.x.size(), CV_8UC1);
    SampleTable(TableRows(tables.x, tables.y), plane).sample({{&plane, target}}, {});
    cv::Mat at_once(tables.x.size(), CV_8UC1, cv::Scalar(77));
    sample_once(TableRows(tables.x, tables.y), {{&plane, at_once}}, 0);
    EXPECT_EQ(cv::norm(target, at_once, cv::NORM_INF), 0) << "kept and made on the way";
    return target;
}

cv::Mat remapped(const Tables& tables, const FramedPlane& plane) {
    cv::Mat target;
    cv::remap(plane.pixels(), target, tables.x, tables.y, cv::INTER_LINEAR, cv::BORDER_CONSTANT, 0);
    return target;
}

TEST(SampleTable, AgreesWithRemapInEveryByte) {
    unsigned seed = 0;
    for (const int cols : {1, 7, 31, 32, 33, 257}) {
        for (const int source : {1, 2, 5, 64}) {
            const FramedPlane plane = random_plane(source + 3, source);
            const Tables tables = random_tables(67, cols, source + 3, source, ++seed);
            EXPECT_EQ(cv::norm(sampled(tables, plane), remapped(tables, plane), cv::NORM_INF), 0)
                << cols << " columns of a plane " << source << " wide";
        }
    }
}

// Extreme bytes at every fraction: where a weight is off by one, black or white shows it.
TEST(SampleTable, RoundsEveryFractionAsRemapDoes) {
    FramedPlane plane(2, 2);
    plane.pixels().at<uint8_t>(0, 0) = 255;
    plane.pixels().at<uint8_t>(1, 1) = 254;
    plane.pixels().at<uint8_t>(0, 1) = 3;
    plane.pixels().at<uint8_t>(1, 0) = 0;
    Tables tables = {cv::Mat(97, 97, CV_32FC1), cv::Mat(97, 97, CV_32FC1)};
    for (int row = 0; row < 97; ++row) {
        for (int column = 0; column < 97; ++column) {
            tables.x.at<float>(row, column) = static_cast<float>(column - 32) / 32;
            tables.y.at<float>(row, column) = static_cast<float>(row - 32) / 32;
        }
    }
    EXPECT_EQ(cv::norm(sampled(tables, plane), remapped(tables, plane), cv::NORM_INF), 0);
    EXPECT_EQ(sampled(tables, plane).at<uint8_t>(32, 32), 255);
}

TEST(SampleTable, ReadsZeroWhereThereIsNoPosition) {
    const FramedPlane plane = random_plane(8, 8);
    const float nowhere[] = {std::numeric_limits<float>::quiet_NaN(),
                             std::numeric_limits<float>::infinity(),
                             -std::numeric_limits<float>::infinity(),
                             1e30f,
                             -1e30f,
                             9.0f,
                             -1.5f};
    for (const float position : nowhere) {
        const Tables tables = {cv::Mat(1, 40, CV_32FC1, cv::Scalar(position)), cv::Mat(1, 40, CV_32FC1, cv::Scalar(3))};
        EXPECT_EQ(cv::countNonZero(sampled(tables, plane)), 0) << position;
        EXPECT_EQ(cv::countNonZero(sampled({tables.y, tables.x}, plane)), 0) << position;
    }
}

TEST(SampleTable, FindsSamplesQuicklyAsThePlainLoopDoes) {
    const FramedPlane plane = random_plane(50, 70);
    for (int count = 0; count < 100; ++count) {
        const Tables tables = random_tables(1, count + 1, 50, 70, static_cast<unsigned>(count));
        const TableRows::Row row = {tables.x.ptr<float>(0), tables.y.ptr<float>(0)};
        std::vector<int32_t> plain_offsets(static_cast<size_t>(count));
        std::vector<uint16_t> plain_fractions(static_cast<size_t>(count));
        std::vector<int32_t> offsets = plain_offsets;
        std::vector<uint16_t> fractions = plain_fractions;
        find_samples_plain(row, count, plane, plain_offsets.data(), plain_fractions.data());
        find_samples(row, count, plane, offsets.data(), fractions.data());
        EXPECT_EQ(offsets, plain_offsets) << count << " pixels";
        EXPECT_EQ(fractions, plain_fractions) << count << " pixels";
    }
}

// The look at the horizon: the seam runs through the poles, and every row has some of the ring.
TEST(SampleTable, MixesEveryPlaneAsOneThatIsNotKeptDoes) {
    RotationCorrect rotation{};
    rotation.yangle = kPi / 2;
    const TableRows rows(luma_mapper({400, 200}, {400, 400}, 187, 0, rotation));
    const FramedPlane sources[] = {random_plane(800, 400), random_plane(800, 400)};
    cv::Mat kept[2];
    cv::Mat at_once[2];
    std::vector<SampledPlane> into_kept;
    std::vector<SampledPlane> into_at_once;
    for (size_t i = 0; i < 2; ++i) {
        kept[i].create(200, 400, CV_8UC1);
        at_once[i].create(200, 400, CV_8UC1);
        into_kept.push_back({&sources[i], kept[i]});
        into_at_once.push_back({&sources[i], at_once[i]});
    }
    const double feather = 0.05;
    SampleTable(rows, sources[0]).sample(into_kept, kept_ring(rows, feather, sources[0]));
    sample_once(rows, into_at_once, feather);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(cv::norm(kept[i], at_once[i], cv::NORM_INF), 0) << i;
    }
    sample_once(rows, into_at_once, 0);
    EXPECT_NE(cv::norm(kept[0], at_once[0], cv::NORM_INF), 0);
}

TEST(SampleTable, HasAQuickLoopThatAgreesWithThePlainOne) {
    const FramedPlane plane = random_plane(50, 70);
    std::mt19937 random(1);
    for (int count = 0; count < 100; ++count) {
        std::vector<int32_t> offsets;
        std::vector<uint16_t> fractions;
        for (int i = 0; i < count; ++i) {
            offsets.push_back(
                static_cast<int32_t>(random() % 50 * static_cast<unsigned>(plane.stride()) + random() % 70));
            fractions.push_back(static_cast<uint16_t>(random() % 32 | random() % 32 << 8));
        }
        std::vector<uint8_t> plain(static_cast<size_t>(count));
        std::vector<uint8_t> quick(static_cast<size_t>(count));
        sample_row_plain(plane.framed(), plane.stride(), offsets.data(), fractions.data(), plain.data(), count);
        sample_row(plane.framed(), plane.stride(), offsets.data(), fractions.data(), quick.data(), count);
        EXPECT_EQ(plain, quick) << count << " pixels";
    }
}

}  // namespace
