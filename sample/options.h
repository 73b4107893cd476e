// What the command line asks for.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "sample/camera_metadata.h"
#include "sample/lens.h"
#include "sample/picture.h"

namespace sample {

// What a pair of pictures and a pair of movies have in common.
struct ShotOptions {
    std::array<std::string, 2> outputs;
    int size = 1936;
    std::string scene = "drawn";
    double angle = 0;                 // degrees, as the export's third angle
    std::array<double, 2> turns{};    // degrees, as the export's two lens angles
    double factor = 1;                // by which lens 2 sees everything brighter
    std::array<int, 3> difference{};  // then added to lens 2's Y, U and V
    double grain = 1;                 // standard deviation in steps of Y
    uint64_t seed = 1;
    std::string chroma = "420";
    CameraTags tags;
};

// The lens (1 or 2) with the turns of its picture that an export undoes: the angle given, and the orientation's.
inline Lens lens_of(const ShotOptions& options, int number) {
    double turn = options.turns[static_cast<size_t>(number - 1)];
    const double away = number == 1 ? -1 : 1;
    switch (options.tags.orientation) {
        case 3:
            turn += away * 180;
            break;
        case 6:
            turn += away * 90;
            break;
        case 8:
            turn += away * 270;
            break;
    }
    return Lens(number, options.size, turn * kDegree);
}

inline Chroma chroma_named(const std::string& name) {
    return name == "422" ? k422 : name == "444" ? k444 : name == "gray" ? kGray : k420;
}

// Columns of the sphere to draw for lens pictures of this size: at least as fine as they are, and a multiple of 1920,
// so that the scene of a movie can turn by whole columns.
inline int sphere_width(int size) {
    return 1920 * ((size + 999) / 1000);
}

// The scene of a movie turns by two columns of 3840 each frame, radians.
constexpr double kTurnOfFrame = 2 * 2 * kPi / 3840;

}  // namespace sample
