// Pictures out of files, and the band picture.
#include "media/loading.h"

#include <stdexcept>
#include <string>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/scaler.h"
#include "projection/soavfunc.h"

namespace {

int scaled_rows(const AVFrame* picture, int width) {
    const double rows = static_cast<double>(width) / picture->width * picture->height;
    if (rows > static_cast<double>(kMostRemapSide)) {
        throw std::runtime_error("the picture is too high for its width: " + std::to_string(picture->width) + "x" +
                                 std::to_string(picture->height));
    }
    return static_cast<int>(rows);
}

// The picture as 4:2:0 of the new size; null when that has no rows or FFmpeg cannot scale it.
FramePtr scaled_picture(const AVFrame* picture, int width) {
    const int rows = scaled_rows(picture, width);
    if (rows < 1) {
        return nullptr;
    }
    const PictureFormat target = {width, rows, AV_PIX_FMT_YUV420P};
    const ScalerPtr scaler(make_scaler(format_of(picture), target));
    FramePtr scaled = make_frame(target);
    const bool done = scaler && scaled && scale_frame(scaler.get(), picture, scaled.get()) >= 0;
    return done ? std::move(scaled) : nullptr;
}

cv::Mat rearranged(const cv::Mat& plane) {
    const int rows = plane.rows;
    const int half = plane.cols / 2;
    const cv::Mat left = plane.colRange(0, half);
    const cv::Mat right = plane.colRange(half, 2 * half);
    const std::vector<cv::Mat> parts = {left.row(0),         left.row(0),        left,
                                        left.row(rows - 1),  right.row(0),       right,
                                        right.row(rows - 1), right.row(rows - 1)};
    cv::Mat stacked;
    cv::vconcat(parts, stacked);
    return stacked;
}

// Halving leaves a picture of one row without chroma rows: its one row of chroma stands for it.
void take_one_chroma_row(const AVFrame* picture, ImageFrame* frame) {
    frame->YUVMats.clear();
    for (int plane = 0; plane < 3; ++plane) {
        const int columns = plane == 0 ? picture->width : picture->width / 2;
        frame->YUVMats.push_back(
            cv::Mat(1, columns, CV_8UC1, picture->data[plane], static_cast<size_t>(picture->linesize[plane])).clone());
    }
}

}  // namespace

ImageFrame imageframe_from_imagefile(const char* path, int width, ImageFrameType type) {
    libavIF media(path);
    if (media.open_input_file(0) != 0) {
        return {};
    }
    AVFrame* decoded = nullptr;
    media.get_frame(&decoded);
    const FramePtr picture(decoded);
    if (!picture || picture->width <= 0 || picture->height <= 0) {
        return {};
    }
    const FramePtr scaled = scaled_picture(picture.get(), width);
    if (!scaled) {
        return {};
    }
    ImageFrame frame;
    if (scaled->height == 1) {
        take_one_chroma_row(scaled.get(), &frame);
    } else {
        frame = imageframe_from_avframe(scaled.get());
    }
    frame.frameType = type;
    return frame;
}

ImageFrame imageframe_from_bandfile(const char* path, int width, ImageFrameType type) {
    ImageFrame band = imageframe_from_imagefile(path, 2 * width, type);
    if (band.frameType == FRAME_TYPE_NOTLOAD) {
        return band;
    }
    for (cv::Mat& plane : band.YUVMats) {
        plane = rearranged(plane);
    }
    return band;
}
