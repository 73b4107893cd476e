// Lens pictures drawn from a formula, as decoded frames.
#pragma once

#include <cmath>
#include <cstddef>
#include <functional>

#include "media/ffmpeg_ptr.h"
#include "media/scaler.h"
#include "sample/lens.h"

namespace test_support {

// A value of Y by the degrees from the seam (negative: lens 1's side) and the degrees along it.
using SeamLight = std::function<double(double off_seam, double along)>;

// What a camera of this size sees through lens 1 or 2 whose picture is turned by `turn` degrees, in 4:2:0 with chroma
// of 128; nothing beyond `field` degrees off the lens's axis, nor far inside, where the seam does not matter.
inline FramePtr lens_frame(int size, int number, double turn, const SeamLight& light, double field = 95) {
    FramePtr frame = make_frame({size, size, AV_PIX_FMT_YUVJ420P}, AVCOL_RANGE_JPEG);
    const double side = number == 1 ? 1 : -1;
    for (int y = 0; y < size; ++y) {
        for (int x = 0; x < size; ++x) {
            const double across = x - size / 2;
            const double down = y - size / 2;
            const double off_axis = std::hypot(across, down) / sample::lens_radius(size) * 90;
            const double along = std::atan2(down, side * across) / sample::kDegree - turn;
            const double value = off_axis < field && off_axis > 85 ? light(side * (off_axis - 90), along) : 0;
            frame->data[0][static_cast<std::ptrdiff_t>(y) * frame->linesize[0] + x] =
                static_cast<uint8_t>(std::lround(std::min(std::max(value, 0.0), 255.0)));
        }
    }
    for (int plane = 1; plane < 3; ++plane) {
        for (int y = 0; y < size / 2; ++y) {
            std::fill_n(frame->data[plane] + static_cast<std::ptrdiff_t>(y) * frame->linesize[plane], size / 2, 128);
        }
    }
    return frame;
}

}  // namespace test_support
