// Angles.
#pragma once

constexpr double kPi = 3.14159265358979323846;

constexpr double radians(double degrees) {
    return degrees * kPi / 180;
}
