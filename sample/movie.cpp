#include "sample/movie.h"

#include <cstdio>
#include <future>
#include <stdexcept>
#include <string>

#include <opencv2/imgproc.hpp>

#include "sample/frame_code.h"
#include "sample/lens_picture.h"
#include "sample/mov_atoms.h"
#include "sample/movie_file.h"
#include "sample/scene.h"
#include "sample/sphere.h"

namespace sample {
namespace {

struct Levels {
    uint8_t black, white;
};
constexpr Levels kFullLevels{0, 255};
constexpr Levels kLimitedLevels{16, 235};

// The lens and the frame's number in the middle of the picture, to be read by people.
void draw_digits(cv::Mat& luma, FrameCode code, Levels levels) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "L%d %05d", code.lens, code.number);
    const double scale = luma.cols / 640.0;
    const int thickness = std::max(1, luma.cols / 250);
    int below = 0;
    const cv::Size size = cv::getTextSize(digits, cv::FONT_HERSHEY_SIMPLEX, scale, thickness, &below);
    const cv::Point origin((luma.cols - size.width) / 2, (luma.rows + size.height) / 2);
    const cv::Rect box(origin.x - below, origin.y - size.height - below, size.width + 2 * below,
                       size.height + 2 * below);
    cv::rectangle(luma, box, cv::Scalar(levels.black), cv::FILLED);
    cv::putText(luma, digits, origin, cv::FONT_HERSHEY_SIMPLEX, scale, cv::Scalar(levels.white), thickness,
                cv::LINE_AA);
}

// The frames of one lens.
class LensFilm {
  public:
    LensFilm(const MovieOptions& options, const Sphere& sphere, int number, Levels levels)
        : number_(number),
          labels_(options.labels),
          sphere_(sphere),
          levels_(levels),
          offset_(number == 2 ? options.difference : std::array<int, 3>{}),
          painter_(lens_of(options, number), options.angle * kDegree, chroma_named(options.chroma), sphere.width(),
                   Lookup::fast),
          grain_(options.grain, options.seed + static_cast<uint64_t>(number), cv::Size(options.size, options.size)),
          code_painter_(options.size) {}

    Picture frame(int index) {
        const int shift = static_cast<int>(std::lround(index * kTurnOfFrame / (2 * kPi) * sphere_.width()));
        Picture picture = painter_.paint(sphere_, shift % sphere_.width(), offset_);
        cv::Mat& luma = picture.planes[0];
        if (labels_) {
            const FrameCode code{index, number_};
            draw_digits(luma, code, levels_);
            code_painter_.paint(luma.data, static_cast<std::ptrdiff_t>(luma.step), code, levels_.white, levels_.black);
        }
        grain_.add_to(luma);
        return picture;
    }

  private:
    int number_;
    bool labels_;
    const Sphere& sphere_;
    Levels levels_;
    std::array<int, 3> offset_;
    LensPainter painter_;
    Grain grain_;
    FrameCodePainter code_painter_;
};

void write_movie(const MovieOptions& options, const Sphere& sphere, size_t index) {
    const bool full_range = is_full_range(options, options.codecs[index]);
    const int number = static_cast<int>(index) + 1;
    MovieFile file(options, index);
    const Sphere seen = number == 2 ? sphere.brighter(options.factor) : sphere;
    LensFilm film(options, seen, number, full_range ? kFullLevels : kLimitedLevels);
    for (int i = 0; i < options.frames[index]; ++i) {
        file.write(film.frame(i));
    }
    file.finish();
    finish_movie(options.outputs[index], options.maker_atom ? maker_block(options.tags) : test_support::Bytes{},
                 options.moov_first);
}

constexpr int64_t kMostH264Pixels = 9437184;  // that libopenh264 encodes

// What the encoder cannot do, or would take without a word and make something else of.
void check_h264(const MovieOptions& options) {
    if (options.chroma != "420") {
        throw std::runtime_error("--chroma " + options.chroma + " goes with --codec mjpeg only; H.264 has 420");
    }
    const int64_t size = options.size;
    if (size % 2 != 0 || size * size > kMostH264Pixels) {
        throw std::runtime_error("--size " + std::to_string(size) +
                                 " goes with --codec mjpeg only; H.264 takes even sizes up to 3072");
    }
}

}  // namespace

void write_movies(const MovieOptions& options) {
    for (const std::string& codec : options.codecs) {
        if (codec != "mjpeg") {
            check_h264(options);
        }
    }
    const std::unique_ptr<Scene> scene = scene_named(options.scene);
    const Sphere full(*scene, sphere_width(options.size), true);
    const Sphere limited = full.limited();
    const auto write = [&](size_t index) {
        write_movie(options, is_full_range(options, options.codecs[index]) ? full : limited, index);
    };
    std::future<void> second = std::async(std::launch::async, write, 1);
    write(0);
    second.get();
}

}  // namespace sample
