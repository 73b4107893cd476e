// The stitching tables and the angles they are built from.
#pragma once

#include "projection/image_frame.h"

// Radians.
struct RotationCorrect {
    double frame1angle;  // added to the azimuth when lens picture 1 is sampled
    double frame2angle;  // the same for lens picture 2
    double xangle;       // turns of the viewing sphere about its axes
    double zangle;
    double yangle;
};

// A turn of the look, after RotationCorrect's, radians. The look is the direction of the panorama's centre, the middle
// column of the horizon. Yaw brings there what was to the right of it; pitch then what is above; roll turns the picture
// clockwise about its centre. Each turn is about the axes that the ones before have left: yaw about "up", pitch about
// the new "left", roll about the new look.
struct ViewTurn {
    double yaw = 0;
    double pitch = 0;
    double roll = 0;
};

// For every pixel of the panorama, which source position to sample. The sources of a plane stand above each
// other in one tall picture: lens 1, lens 2, then the band. Without tables, sizes alone, it asks for tables that are
// made row by row when they are used.
struct EquidistantTransMap {
    cv::Mat ymapx, ymapy;    // CV_32FC1, equsize: source column and row of each Y pixel
    cv::Mat uvmapx, uvmapy;  // CV_32FC1, half of equsize (integer halving): the same for U and V
    ImageSize equsize{0, 0};
    ImageSize projsize{0, 0};
    int32_t bandheight = 0;  // rows of the rearranged band's Y plane, 0 without a band
};
