#include "media/rgb.h"

#include <opencv2/imgproc.hpp>

#include "media/full_range.h"

namespace {

cv::Mat plane_of(const AVFrame* frame, int plane, cv::Size size) {
    return {size, CV_8UC1, frame->data[plane], static_cast<size_t>(frame->linesize[plane])};
}

// Twice the size on each side, but for the last column or row of a picture of odd sides.
cv::Mat enlarged(const cv::Mat& chroma, cv::Size size) {
    cv::Mat twice;
    cv::resize(chroma, twice, chroma.size() * 2, 0, 0, cv::INTER_LINEAR);
    return twice(cv::Rect({0, 0}, size));
}

}  // namespace

cv::Mat rgb_of(const AVFrame* picture) {
    const FramePtr full = in_full_range(picture);
    const cv::Size size(full->width, full->height);
    const cv::Size half((size.width + 1) / 2, (size.height + 1) / 2);
    const cv::Mat planes[] = {plane_of(full.get(), 0, size), enlarged(plane_of(full.get(), 2, half), size),
                              enlarged(plane_of(full.get(), 1, half), size)};
    cv::Mat pixels;
    cv::merge(planes, 3, pixels);
    cv::cvtColor(pixels, pixels, cv::COLOR_YCrCb2RGB);
    return pixels;
}
