// Where the two lenses of the camera see what.
//
// The camera's frame: lens 1 looks along +z, lens 2 along -z. With the camera turned by 0 degrees it is also the
// panorama's frame: +x is the horizon in the middle column, +y the horizon three quarters across, +z the top row.
// Both lens pictures are equidistant: the distance from the centre grows in proportion to the angle from the axis.
#pragma once

#include <cmath>

namespace sample {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegree = kPi / 180;

// Real lenses see a little past the hemisphere; outside the picture is black.
constexpr double kFieldDegrees = 95;

struct Vector {
    double x, y, z;
};

struct Position {
    double x, y;  // whole numbers are pixel centres
};

// Pixels from the centre to 90 degrees, for a lens picture of size x size. The first three are the camera's sizes.
inline double lens_radius(int size) {
    switch (size) {
        case 1440:
            return 675;
        case 1936:
            return 907;
        case 3888:
            return 1821;
        default:
            return size * 907.0 / 1936;
    }
}

// A lens and its square picture.
class Lens {
  public:
    // `number` is 1 or 2, `size` the pixels of either side, `turn` the radians that the picture is turned about its
    // centre.
    Lens(int number, int size, double turn = 0)
        : number_(number),
          size_(size),
          centre_(size / 2),
          pixels_per_radian_(lens_radius(size) / (kPi / 2)),
          cos_turn_(std::cos(turn)),
          sin_turn_(std::sin(turn)) {}

    int number() const { return number_; }
    int size() const { return size_; }

    // Whether the lens sees anything at a position of its picture.
    bool sees(Position position) const {
        const double dx = position.x - centre_;
        const double dy = position.y - centre_;
        const double reach = kFieldDegrees * kDegree * pixels_per_radian_;
        return dx * dx + dy * dy <= reach * reach;
    }

    // What the lens sees at a position of its picture, as a unit vector in the camera's frame.
    Vector direction_at(Position position) const {
        const double dx = position.x - centre_;
        const double dy = position.y - centre_;
        const double distance = std::sqrt(dx * dx + dy * dy);
        if (distance == 0) {
            return {0, 0, side()};
        }
        // Lens 2 shows the azimuth mirrored, since it looks the other way.
        const double c = side() * dx / distance;
        const double s = dy / distance;
        const double across = std::sin(distance / pixels_per_radian_);
        const double along = std::cos(distance / pixels_per_radian_);
        // The azimuth runs from +y towards +x.
        return {across * (s * cos_turn_ - c * sin_turn_), across * (c * cos_turn_ + s * sin_turn_), side() * along};
    }

    // The reverse of direction_at, for any direction.
    Position position_of(Vector direction) const {
        const double across = std::sqrt(direction.x * direction.x + direction.y * direction.y);
        if (across == 0) {
            return {centre_, centre_};
        }
        const double distance = std::atan2(across, side() * direction.z) * pixels_per_radian_;
        const double c = (direction.y * cos_turn_ - direction.x * sin_turn_) / across;
        const double s = (direction.x * cos_turn_ + direction.y * sin_turn_) / across;
        return {centre_ + side() * distance * c, centre_ + distance * s};
    }

  private:
    double side() const { return number_ == 1 ? 1 : -1; }

    int number_;
    int size_;
    double centre_;
    double pixels_per_radian_;
    double cos_turn_;
    double sin_turn_;
};

// From the camera's frame into the panorama's, for a camera whose pictures are exported with this third angle.
inline Vector panorama_from_camera(Vector q, double angle) {
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    return {c * q.x - s * q.z, q.y, s * q.x + c * q.z};
}

// Where somebody looks, in degrees: to the right by `yaw`, then up by `pitch`; `roll` turns what is seen clockwise.
struct Look {
    double yaw = 0;
    double pitch = 0;
    double roll = 0;
};

// The direction that lies ahead, to the right and above in these shares, in the panorama's frame.
inline Vector seen_direction(double ahead, double right, double above, const Look& look) {
    const double cy = std::cos(look.yaw * kDegree), sy = std::sin(look.yaw * kDegree);
    const double cp = std::cos(look.pitch * kDegree), sp = std::sin(look.pitch * kDegree);
    const double cr = std::cos(look.roll * kDegree), sr = std::sin(look.roll * kDegree);
    // On a level head, and then of what is seen clockwise.
    const double level_right = cr * right - sr * above;
    const double level_above = sr * right + cr * above;
    const double level_ahead = cp * ahead - sp * level_above;
    return {cy * level_ahead - sy * level_right, sy * level_ahead + cy * level_right, sp * ahead + cp * level_above};
}

// A panorama of width x height has the longitude -180 degrees at column 0 and the zenith at row 0.
inline Position panorama_position(Vector p, int width, int height) {
    const double longitude = std::atan2(p.y, p.x);
    const double colatitude = std::atan2(std::sqrt(p.x * p.x + p.y * p.y), p.z);
    return {(longitude + kPi) * width / (2 * kPi), colatitude * height / kPi};
}

}  // namespace sample
