// The ways between decoded frames and pictures.
#include <algorithm>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/output_option.h"
#include "media/pair_writer.h"
#include "media/scaler.h"

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
    *ctx = make_scaler({src->width, src->height, AV_PIX_FMT_YUV422P},
                       {dst->width, dst->height, static_cast<AVPixelFormat>(dst->format)});
    return *ctx;
}

int libavIF::convert_frame(AVFrame* frame1, AVFrame* frame2, const OutputOption& option) {
    PairWriter writer(this, option, false);
    writer.load_and_stitch(0, frame1);
    writer.load_and_stitch(1, frame2);
    const int queued = writer.queue_panorama(false, false);
    if (queued < 0) {
        return fail(queued);
    }
    writer.encode();
    return std::min(writer.write(), 0);
}
