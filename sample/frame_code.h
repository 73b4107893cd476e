// A number in each lens picture that a test reads back from the picture or from the stitched panorama.
//
// The code is a ring around the lens axis, from 25 to 35 degrees off it, cut into 20 sectors of 18 degrees. Sector i
// lies between the angles 18 * i and 18 * (i + 1), counted in the lens picture from the right, clockwise as one sees
// it. In a panorama exported with all angles 0 the rings are two rows of blocks: those of lens 1 at a colatitude of
// 25 to 35 degrees, those of lens 2 at 145 to 155 degrees.
//
// The sectors are, in this order: white, black, the 16 bits of the number with the highest first (a one is white),
// the lens (white: lens 2), and a bit that makes the number of white ones among these 18 even. The code can be read
// in lens pictures of 128 x 128 and larger.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "sample/lens.h"

namespace sample {

struct FrameCode {
    int number;  // 0 to 65535
    int lens;    // 1 or 2

    bool operator==(const FrameCode& other) const { return number == other.number && lens == other.lens; }
};

// The Y plane of a picture; borrowed.
struct LumaView {
    const uint8_t* data;
    int width, height;
    std::ptrdiff_t stride;

    // Columns come round again.
    int at(Position position) const {
        const auto x = static_cast<int>(std::lround(position.x)) % width;
        const auto y = std::clamp(static_cast<int>(std::lround(position.y)), 0, height - 1);
        return data[y * stride + (x + width) % width];
    }
};

namespace frame_code_detail {

constexpr size_t kSectors = 20;
constexpr int kNumberBits = 16;
constexpr double kInnerDegrees = 25;
constexpr double kOuterDegrees = 35;
constexpr double kSectorDegrees = 360.0 / kSectors;
constexpr double kLeastContrast = 60;  // steps of Y between white and black

using Sectors = std::array<bool, kSectors>;

inline Sectors sectors_of(FrameCode code) {
    Sectors sectors{true, false};
    bool odd = code.lens == 2;
    for (int i = 0; i < kNumberBits; ++i) {
        const bool one = (code.number >> (kNumberBits - 1 - i) & 1) != 0;
        sectors[static_cast<size_t>(2 + i)] = one;
        odd = odd != one;
    }
    sectors[kSectors - 2] = code.lens == 2;
    sectors[kSectors - 1] = odd;
    return sectors;
}

inline std::optional<FrameCode> code_of(const std::array<double, kSectors>& levels) {
    if (levels[0] - levels[1] < kLeastContrast) {
        return std::nullopt;
    }
    const double threshold = (levels[0] + levels[1]) / 2;
    FrameCode code{0, levels[kSectors - 2] > threshold ? 2 : 1};
    for (size_t i = 2; i < kSectors - 2; ++i) {
        code.number = code.number << 1 | (levels[i] > threshold ? 1 : 0);
    }
    if (sectors_of(code)[kSectors - 1] != (levels[kSectors - 1] > threshold)) {
        return std::nullopt;
    }
    return code;
}

// The mean of the inner part of each sector; `value_at` gives Y at a distance from the axis and an angle, in degrees.
template <typename ValueAt>
std::array<double, kSectors> sector_levels(ValueAt value_at) {
    std::array<double, kSectors> levels{};
    constexpr int kPoints = 5;
    for (size_t sector = 0; sector < kSectors; ++sector) {
        for (int i = 0; i < kPoints * kPoints; ++i) {
            const double along = 0.25 + 0.5 * (i % kPoints) / (kPoints - 1);
            const double across = 0.25 + 0.5 * (i / kPoints) / (kPoints - 1);
            levels[sector] += value_at(kInnerDegrees + across * (kOuterDegrees - kInnerDegrees),
                                       (static_cast<double>(sector) + along) * kSectorDegrees);
        }
        levels[sector] /= kPoints * kPoints;
    }
    return levels;
}

inline Position ring_position(int size, double off_axis, double angle) {
    const double distance = off_axis / 90 * lens_radius(size);
    return {size / 2 + distance * std::cos(angle * kDegree), size / 2 + distance * std::sin(angle * kDegree)};
}

}  // namespace frame_code_detail

// Draws codes into lens pictures of one size.
class FrameCodePainter {
  public:
    explicit FrameCodePainter(int size) : size_(size), sectors_(static_cast<size_t>(size) * static_cast<size_t>(size)) {
        for (int y = 0; y < size; ++y) {
            for (int x = 0; x < size; ++x) {
                const double dx = x - size / 2;
                const double dy = y - size / 2;
                const double off_axis = std::hypot(dx, dy) / lens_radius(size) * 90;
                const double angle = std::atan2(dy, dx) / kDegree;
                const bool inside =
                    off_axis >= frame_code_detail::kInnerDegrees && off_axis < frame_code_detail::kOuterDegrees;
                const double turns = (angle < 0 ? angle + 360 : angle) / frame_code_detail::kSectorDegrees;
                sectors_[index(x, y)] = inside ? static_cast<uint8_t>(turns) % frame_code_detail::kSectors : kNone;
            }
        }
    }

    // `luma` is a Y plane of size x size; `white` and `black` are the values to draw with.
    void paint(uint8_t* luma, std::ptrdiff_t stride, FrameCode code, uint8_t white, uint8_t black) const {
        const auto sectors = frame_code_detail::sectors_of(code);
        const int reach = static_cast<int>(frame_code_detail::kOuterDegrees / 90 * lens_radius(size_)) + 1;
        for (int y = size_ / 2 - reach; y <= size_ / 2 + reach; ++y) {
            for (int x = size_ / 2 - reach; x <= size_ / 2 + reach; ++x) {
                const uint8_t sector = sectors_[index(x, y)];
                if (sector != kNone) {
                    luma[y * stride + x] = sectors[sector] ? white : black;
                }
            }
        }
    }

  private:
    static constexpr uint8_t kNone = 255;

    size_t index(int x, int y) const {
        return static_cast<size_t>(y) * static_cast<size_t>(size_) + static_cast<size_t>(x);
    }

    int size_;
    std::vector<uint8_t> sectors_;
};

// The code in a lens picture, or nothing when there is none that is whole.
inline std::optional<FrameCode> read_lens_code(const LumaView& luma) {
    using namespace frame_code_detail;
    return code_of(sector_levels(
        [&](double off_axis, double angle) { return luma.at(ring_position(luma.width, off_axis, angle)); }));
}

// The code of lens 1 or 2 in a panorama. `turn` is the angle of that lens and `angle` the third angle that the
// panorama was exported with, in degrees. An orientation adds to `turn`: 3, 6 and 8 take 180, 90 and 270 from lens
// 1's and add them to lens 2's.
inline std::optional<FrameCode> read_panorama_code(const LumaView& luma, int lens, double turn = 0, double angle = 0) {
    using namespace frame_code_detail;
    constexpr int kAnySize = 1936;
    const Lens seen(lens, kAnySize, turn * kDegree);
    return code_of(sector_levels([&](double off_axis, double around) {
        const Vector direction = seen.direction_at(ring_position(kAnySize, off_axis, around));
        return luma.at(panorama_position(panorama_from_camera(direction, angle * kDegree), luma.width, luma.height));
    }));
}

}  // namespace sample
