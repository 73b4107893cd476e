#include "media/scaler.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/command.h"

namespace {

using test_support::logged;

FramePtr make_frame(int width, int height, AVPixelFormat format) {
    FramePtr frame(av_frame_alloc());
    frame->width = width;
    frame->height = height;
    frame->format = format;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 32), 0);
    return frame;
}

// Planes of 4:2:0, each of one value.
FramePtr flat_frame(int width, int height, AVPixelFormat format, int y, int u = 128, int v = 128) {
    FramePtr frame = make_frame(width, height, format);
    const int values[] = {y, u, v};
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? height : (height + 1) / 2;
        std::fill_n(frame->data[plane], static_cast<size_t>(frame->linesize[plane]) * rows,
                    static_cast<uint8_t>(values[plane]));
    }
    return frame;
}

FramePtr noise_frame(int width, int height, AVPixelFormat format) {
    FramePtr frame = flat_frame(width, height, format, 0);
    std::mt19937 random(1);
    for (int plane = 0; plane < 3; ++plane) {
        const int bytes = frame->linesize[plane] * (plane == 0 ? height : (height + 1) / 2);
        for (int i = 0; i < bytes; ++i) {
            frame->data[plane][i] = static_cast<uint8_t>(random());
        }
    }
    return frame;
}

FramePtr scaled(const AVFrame* source, int width, int height, AVPixelFormat format) {
    FramePtr target = make_frame(width, height, format);
    const ScalerPtr scaler(make_scaler(format_of(source), format_of(target.get())));
    EXPECT_TRUE(scaler);
    sws_scale(scaler.get(), source->data, source->linesize, 0, source->height, target->data, target->linesize);
    return target;
}

// What FFmpeg's own call makes of the same names of formats.
FramePtr scaled_by_ffmpeg(const AVFrame* source, int width, int height, AVPixelFormat format) {
    FramePtr target = make_frame(width, height, format);
    const ScalerPtr scaler(sws_getContext(source->width, source->height, static_cast<AVPixelFormat>(source->format),
                                          width, height, format, SWS_BICUBIC, nullptr, nullptr, nullptr));
    sws_scale(scaler.get(), source->data, source->linesize, 0, source->height, target->data, target->linesize);
    return target;
}

std::vector<uint8_t> pixels(const AVFrame* frame) {
    std::vector<uint8_t> bytes;
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? frame->height : (frame->height + 1) / 2;
        const int columns = plane == 0 ? frame->width : (frame->width + 1) / 2;
        for (int row = 0; row < rows; ++row) {
            const uint8_t* start = frame->data[plane] + static_cast<ptrdiff_t>(row) * frame->linesize[plane];
            bytes.insert(bytes.end(), start, start + columns);
        }
    }
    return bytes;
}

TEST(Scaler, TakesThePlaceOfFFmpegsOwnCall) {
    for (AVPixelFormat from : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P}) {
        for (AVPixelFormat to : {AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVJ420P}) {
            const FramePtr source = noise_frame(97, 55, from);
            EXPECT_EQ(pixels(scaled(source.get(), 40, 33, to).get()),
                      pixels(scaled_by_ffmpeg(source.get(), 40, 33, to).get()))
                << from << " to " << to;
        }
    }
}

TEST(Scaler, SqueezesFullRangeIntoLimitedAndBack) {
    const FramePtr white = flat_frame(32, 32, AV_PIX_FMT_YUVJ420P, 255);
    EXPECT_EQ(scaled(white.get(), 32, 32, AV_PIX_FMT_YUV420P)->data[0][0], 235);
    const FramePtr black = flat_frame(32, 32, AV_PIX_FMT_YUVJ420P, 0);
    EXPECT_EQ(scaled(black.get(), 32, 32, AV_PIX_FMT_YUV420P)->data[0][0], 16);
    const FramePtr limited_white = flat_frame(32, 32, AV_PIX_FMT_YUV420P, 235);
    EXPECT_EQ(scaled(limited_white.get(), 32, 32, AV_PIX_FMT_YUVJ420P)->data[0][0], 255);
}

TEST(Scaler, LeavesTheRangeWhereBothHaveIt) {
    const FramePtr white = flat_frame(32, 32, AV_PIX_FMT_YUVJ420P, 255);
    EXPECT_EQ(scaled(white.get(), 16, 16, AV_PIX_FMT_YUVJ420P)->data[0][0], 255);
    const FramePtr limited = flat_frame(32, 32, AV_PIX_FMT_YUV420P, 16);
    EXPECT_EQ(scaled(limited.get(), 16, 16, AV_PIX_FMT_YUV420P)->data[0][0], 16);
}

TEST(Scaler, KnowsTheFullRangeOfEveryJFormat) {
    for (AVPixelFormat format :
         {AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_YUVJ422P, AV_PIX_FMT_YUVJ444P, AV_PIX_FMT_YUVJ440P, AV_PIX_FMT_YUVJ411P}) {
        FramePtr white = make_frame(64, 64, format);
        std::fill_n(white->buf[0]->data, white->buf[0]->size, uint8_t{128});
        std::fill_n(white->data[0], white->linesize[0] * 64, uint8_t{255});
        EXPECT_EQ(scaled(white.get(), 64, 64, AV_PIX_FMT_YUV420P)->data[0][70], 235) << format;
    }
}

TEST(Scaler, SaysNothingOnTheErrorStream) {
    const FramePtr source = noise_frame(64, 64, AV_PIX_FMT_YUVJ420P);
    EXPECT_EQ(logged([&] {
                  scaled(source.get(), 32, 32, AV_PIX_FMT_YUV420P);
                  scaled(source.get(), 32, 32, AV_PIX_FMT_YUVJ420P);
              }),
              "");
}

TEST(Scaler, IsNullWhereFFmpegCannotScale) {
    EXPECT_EQ(make_scaler({64, 64, AV_PIX_FMT_NONE}, {32, 32, AV_PIX_FMT_YUV420P}), nullptr);
    EXPECT_EQ(make_scaler({64, 64, AV_PIX_FMT_YUV420P}, {0, 32, AV_PIX_FMT_YUV420P}), nullptr);
}

}  // namespace
