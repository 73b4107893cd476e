// What is known of the camera's lens pictures by their size and orientation.
#pragma once

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
    constexpr double kHalfTurn = 3.14159265358979323846;
    switch (orientation) {
        case 8:
            return 3 * kHalfTurn / 2;
        case 6:
            return kHalfTurn / 2;
        case 3:
            return kHalfTurn;
        default:
            return 0;
    }
}
