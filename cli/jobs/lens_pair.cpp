#include "jobs/lens_pair.h"

#include <opencv2/imgproc.hpp>

#include "jobs/description.h"
#include "jobs/errors.h"
#include "jobs/lens_frame.h"
#include "projection/angles.h"
#include "projection/lens_circle.h"
#include "projection/soavfunc.h"
#include "terminal/console.h"

namespace {

constexpr double kDegree = kPi / 180;

void check_sizes(const LensPair& pair, const PairOptions& options) {
    const cv::Size size1 = pair.pictures[0].YUVMats[0].size();
    const cv::Size size2 = pair.pictures[1].YUVMats[0].size();
    const auto text = [](cv::Size size) { return std::to_string(size.width) + "x" + std::to_string(size.height); };
    if (size1 != size2) {
        throw CommandError(printable(options.lens[1]) + ": not of the size of " + printable(options.lens[0]) + " (" +
                           text(size2) + ", not " + text(size1) + "); both must be of one shot");
    }
    const double radius = projection_radius(size1.width);
    if (radius == 0 || radius >= size1.height / 2.0) {
        throw CommandError(printable(options.lens[0]) +
                           ": not a picture of this camera, which are square and 3888, "
                           "1936 or 1440 pixels wide, not " +
                           text(size1));
    }
}

}  // namespace

LensPair read_pair(const PairOptions& options) {
    LensPair pair;
    for (int i = 0; i < 2; ++i) {
        const Description file = describe(options.lens[i]);
        pair.is_movie = pair.is_movie || !file.is_picture;
        pair.turns[i] = options.turns[i] * kDegree + (i == 0 ? -1 : 1) * orientation_turn(file.orientation);
        pair.pictures[i] = read_lens_frame(options.lens[i], options.start(i));
        if (pair.pictures[i].frameType == FRAME_TYPE_NOTLOAD) {
            throw CommandError(printable(options.lens[i]) + ": holds no picture");
        }
    }
    check_sizes(pair, options);
    return pair;
}

void correct(ImageFrame* picture, const Correction& correction) {
    YuvCorrectMap map = create_linnercorrectmap(correction.y, correction.u, correction.v);
    avcorrect_with_map(picture, &map);
}

ImageFrame stitched(const LensPair& pair, Size size, int tilt, const ImageFrame& band) {
    const cv::Mat& luma = pair.pictures[0].YUVMats[0];
    const int band_height = band.frameType == FRAME_TYPE_NOTLOAD ? 0 : band.YUVMats[0].rows;
    const RotationCorrect rotation = {pair.turns[0], pair.turns[1], 0, 0, tilt * kDegree};
    EquidistantTransMap map = create_equidistantmap({size.width, size.height}, {luma.cols, luma.rows},
                                                    projection_radius(luma.cols), band_height, rotation);
    ImageFrame picture1 = pair.pictures[0];
    ImageFrame picture2 = pair.pictures[1];
    ImageFrame strip = band;
    ImageFrame panorama;
    convert_equirectangular_with_map(&panorama, &picture1, &picture2, &strip, &map, cv::INTER_LINEAR);
    return panorama;
}
