// What is known of the camera's lens pictures by their size and orientation.
#pragma once

#include "projection/angles.h"

// Pixels from the middle of a lens picture to 90 degrees off the lens axis, by the camera's recording width; 0 for
// a width that the camera does not record.
inline double projection_radius(int width) {
    switch (width) {
        case 1440:
            return 675.0;
        case 1936:
            return 907.0;
        case 3888:
            return 1821.0;
        default:
            return 0;
    }
}

// How a picture's EXIF orientation turns it, radians: taken from lens 1's turn and added to lens 2's, on purpose:
// they face opposite ways.
inline double orientation_turn(int orientation) {
    switch (orientation) {
        case 8:
            return 3 * kPi / 2;
        case 6:
            return kPi / 2;
        case 3:
            return kPi;
        default:
            return 0;
    }
}
