#include "seam/ring.h"

#include <cmath>

#include <opencv2/imgproc.hpp>

#include "projection/angles.h"

Ring::Ring(const cv::Mat& plane, int lens, double turn, double radius) {
    const cv::Size size(kDirections, 2 * kRowsPerSide + 1);
    cv::Mat columns(size, CV_32FC1);
    cv::Mat rows(size, CV_32FC1);
    const cv::Point centre(plane.cols / 2, plane.rows / 2);  // whole pixels, as the stitcher has it
    const double side = lens == 0 ? 1 : -1;  // lens 2 looks the other way: its angles are the rest to 180 degrees
    for (int x = 0; x < size.width; ++x) {
        const double azimuth = 2 * kPi * x / kDirections + turn;
        const double across = side * std::cos(azimuth);
        const double down = std::sin(azimuth);
        for (int y = 0; y < size.height; ++y) {
            const double distance = radius * (1 + side * (y - kRowsPerSide) * kDegreesPerRow / 90);
            columns.at<float>(y, x) = static_cast<float>(centre.x + across * distance);
            rows.at<float>(y, x) = static_cast<float>(centre.y + down * distance);
        }
    }
    cv::remap(plane, samples_, columns, rows, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar(0));
}
