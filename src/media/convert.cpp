// From two decoded frames to one encoded panorama.
#include <stdexcept>
#include <string>

#include <opencv2/imgproc.hpp>

#include "api/output_option.h"
#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/scaler.h"
#include "soavfunc.h"

namespace {

// The next frame's time is one camera frame later, whatever the movie's rate; deliberate, as is the encoder's
// time base that goes with it.
constexpr int64_t kFrameTicks = 1001;

bool is_422(const AVFrame* frame) {
    return frame->format == AV_PIX_FMT_YUV422P || frame->format == AV_PIX_FMT_YUVJ422P;
}

bool is_420(const AVFrame* frame) {
    return frame->format == AV_PIX_FMT_YUV420P || frame->format == AV_PIX_FMT_YUVJ420P;
}

std::string size_text(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

// The decoder may deliver other formats and sizes than the container announced.
void check_format(const AVFrame* frame, int input) {
    if (!is_420(frame) && !is_422(frame)) {
        throw std::runtime_error("input " + std::to_string(input) +
                                 " is not 4:2:0 or 4:2:2 with 8 bits, the only formats that can be stitched");
    }
}

void check_size(const AVFrame* frame, ImageSize expected, int input) {
    if (frame->width != expected.width || frame->height != expected.height) {
        throw std::runtime_error("input " + std::to_string(input) + " has a frame of " +
                                 size_text(frame->width, frame->height) + " where " +
                                 size_text(expected.width, expected.height) + " was expected");
    }
}

FramePtr make_frame_420(int width, int height) {
    FramePtr frame(av_frame_alloc());
    if (frame) {
        frame->width = width;
        frame->height = height;
        frame->format = AV_PIX_FMT_YUV420P;
    }
    if (!frame || av_frame_get_buffer(frame.get(), 32) < 0) {
        throw std::bad_alloc();
    }
    return frame;
}

// Full-range 4:2:2 is read as limited range too, deliberately: both lenses are treated alike.
PictureFormat as_422(const AVFrame* frame) {
    return {frame->width, frame->height, AV_PIX_FMT_YUV422P};
}

PictureFormat as_420(const AVFrame* frame) {
    return {frame->width, frame->height, AV_PIX_FMT_YUV420P};
}

// The frame as 4:2:0 of `size`. A scaler that is already there is used as it is, deliberately also for the
// second input; otherwise one is made and kept for the pair.
FramePtr converted_to_420(const AVFrame* frame, ImageSize size, ScalerPtr* scaler) {
    FramePtr result = make_frame_420(size.width, size.height);
    if (!*scaler) {
        scaler->reset(make_scaler(as_422(frame), as_420(result.get())));
    }
    if (!*scaler) {
        throw std::runtime_error("FFmpeg cannot convert this 4:2:2 picture");
    }
    sws_scale(scaler->get(), frame->data, frame->linesize, 0, frame->height, result->data, result->linesize);
    return result;
}

bool any_enabled(const YuvCorrectMap& map) {
    return map.yenabled || map.uenabled || map.venabled;
}

// The lens picture of a frame, corrected.
ImageFrame lens_picture(AVFrame* frame, const YuvCorrectMap& correction) {
    ImageFrame picture = imageframe_from_avframe(frame);
    if (any_enabled(correction)) {
        YuvCorrectMap map = correction;
        avcorrect_with_map(&picture, &map);
    }
    return picture;
}

// FFmpeg's chroma of an odd picture has a column or row more than ours: the last one is repeated.
void pad_chroma(ImageFrame* picture) {
    const cv::Mat& y = picture->YUVMats[0];
    for (size_t plane = 1; plane < picture->YUVMats.size(); ++plane) {
        cv::Mat& chroma = picture->YUVMats[plane];
        const int below = (y.rows + 1) / 2 - chroma.rows;
        const int right = (y.cols + 1) / 2 - chroma.cols;
        if (below > 0 || right > 0) {
            cv::Mat padded;
            cv::copyMakeBorder(chroma, padded, 0, below, 0, right, cv::BORDER_REPLICATE);
            chroma = padded;
        }
    }
}

}  // namespace

AVFrame* avframe_from_iamgeframe(ImageFrame frame) {
    AVFrame* result = av_frame_alloc();
    if (!result) {
        return nullptr;
    }
    result->width = frame.YUVMats[0].cols;
    result->height = frame.YUVMats[0].rows;
    result->format = AV_PIX_FMT_YUV420P;
    for (size_t plane = 0; plane < 3; ++plane) {
        result->data[plane] = frame.YUVMats[plane].data;
        result->linesize[plane] = static_cast<int>(frame.YUVMats[plane].step);
    }
    return result;
}

SwsContext* init_sws_context2(SwsContext** ctx, AVFrame* src, AVFrame* dst) {
    *ctx = make_scaler(as_422(src), {dst->width, dst->height, static_cast<AVPixelFormat>(dst->format)});
    return *ctx;
}

int libavIF::convert_frame(AVFrame* frame1, AVFrame* frame2, const OutputOption& option) {
    check_format(frame1, 1);
    check_format(frame2, 2);
    ScalerPtr scaler;
    FramePtr converted1;
    FramePtr converted2;
    const ImageSize size1 = {frame1->width, frame1->height};
    if (is_422(frame1)) {
        converted1 = converted_to_420(frame1, size1, &scaler);
        frame1 = converted1.get();
    }
    if (is_422(frame2)) {
        if (scaler) {
            check_size(frame2, size1, 2);  // the first picture's scaler reads as many rows and columns
        }
        converted2 = converted_to_420(frame2, size1, &scaler);
        frame2 = converted2.get();
    }
    check_size(frame1, option.transmap.projsize, 1);
    check_size(frame2, option.transmap.projsize, 2);
    ImageFrame picture1 = lens_picture(frame1, option.correct1);
    ImageFrame picture2 = lens_picture(frame2, option.correct2);

    ImageFrame panorama;
    ImageFrame band = option.band;
    EquidistantTransMap map = option.transmap;
    convert_equirectangular_with_map(&panorama, &picture1, &picture2, &band, &map, cv::INTER_LINEAR);
    pad_chroma(&panorama);

    FramePtr output(avframe_from_iamgeframe(panorama));
    if (!output) {
        return fail(AVERROR(ENOMEM));
    }
    // The same pixels under the name and range that the encoder was opened with.
    output->format = video_encoder_context->pix_fmt;
    output->color_range = video_encoder_context->color_range;
    output->pts = next_video_pts;
    next_video_pts += kFrameTicks;
    error_code = write_video_frame(output.get());
    return error_code < 0 ? error_code : 0;
}
