#include "projection/soavfunc.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "projection/large_pages.h"
#include "projection/parallel.h"
#include "projection/plane_mapper.h"

namespace {

[[noreturn]] void report_failed_assertion(const char* expression, const char* function, int line) {
    std::fprintf(stderr, "Assertion failed: (%s), function %s, file src/soavfunc, line %d.\n", expression, function,
                 line);
    std::abort();
}

}  // namespace

// Unlike assert() these stay on in release builds. A condition that compilers want further parentheses in is
// handed over together with the text to report.
#define SOAV_ASSERT_REPORT(condition, text, line)              \
    do {                                                       \
        if (!(condition)) {                                    \
            report_failed_assertion((text), __func__, (line)); \
        }                                                      \
    } while (false)
#define SOAV_ASSERT(condition) SOAV_ASSERT_REPORT(condition, #condition, __LINE__)

// ---- Frames ----

cv::Mat rgbmat_from_imageframe(ImageFrame imageframe) {
    SOAV_ASSERT(imageframe.frameType != FRAME_TYPE_NOTLOAD);
    SOAV_ASSERT(imageframe.YUVMats.size() == 3);
    const cv::Mat& luma = imageframe.YUVMats[0];
    cv::Mat planes[3] = {luma};
    for (int i = 1; i < 3; ++i) {
        cv::resize(imageframe.YUVMats[i], planes[i], luma.size(), 0, 0, cv::INTER_LINEAR);
    }
    cv::Mat yuv(luma.rows, luma.cols, CV_8UC3);
    constexpr int kSameChannels[] = {0, 0, 1, 1, 2, 2};
    cv::mixChannels(planes, 3, &yuv, 1, kSameChannels, 3);
    cv::Mat rgb;
    cv::cvtColor(yuv, rgb, cv::COLOR_YUV2RGB);
    return rgb;
}

ImageFrame imageframe_from_avframe(AVFrame* frame) {
    // The line is a fixed one, deliberately: this report is told from others by its text, which stays the same
    // wherever the function stands.
    SOAV_ASSERT_REPORT(frame->format == AV_PIX_FMT_YUVJ420P || frame->format == AV_PIX_FMT_YUV420P ||
                           frame->format == AV_PIX_FMT_YUVJ422P || frame->format == AV_PIX_FMT_YUV422P,
                       "frame->format == AV_PIX_FMT_YUVJ420P || frame->format == AV_PIX_FMT_YUV420P || "
                       "frame->format == AV_PIX_FMT_YUVJ422P || frame->format == AV_PIX_FMT_YUV422P",
                       208);
    const int chroma_rows = frame->height / 2;
    const int chroma_cols = frame->width / 2;
    const cv::Mat planes[3] = {
        cv::Mat(frame->height, frame->width, CV_8UC1, frame->data[0], frame->linesize[0]),
        cv::Mat(chroma_rows, chroma_cols, CV_8UC1, frame->data[1], frame->linesize[1]),
        cv::Mat(chroma_rows, chroma_cols, CV_8UC1, frame->data[2], frame->linesize[2]),
    };
    ImageFrame image;
    if (planes[0].empty() || planes[1].empty() || planes[2].empty()) {
        return image;
    }
    image.frameType = FRAME_TYPE_YUV420;
    for (const cv::Mat& plane : planes) {
        image.YUVMats.push_back(plane.clone());
    }
    return image;
}

// ---- Tables ----

void uvpoint_from_equidistantxypoint(double* u, double* v, int x, int y, ImageSize equsize, ImageSize projsize,
                                     ImagePoint center, int radius, int bandheight, double frame1angle,
                                     double frame2angle, double xangle, double zangle, double yangle) {
    uvpoint_of_panorama_point(u, v, x, y, equsize, {projsize, center, radius, bandheight, frame1angle, frame2angle},
                              {frame1angle, frame2angle, xangle, zangle, yangle});
}

namespace {

void map_plane(cv::Mat* mapx, cv::Mat* mapy, const PlaneMapper& mapper) {
    const ImageSize size = mapper.size();
    create_large(mapx, size.height, size.width, CV_32FC1);
    create_large(mapy, size.height, size.width, CV_32FC1);
    in_parallel(size.height, [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            mapper.map_row(y, mapx->ptr<float>(y), mapy->ptr<float>(y));
        }
    });
}

}  // namespace

EquidistantTransMap create_equidistantmap(ImageSize equsize, ImageSize projsize, double projradius, int bandheight,
                                          RotationCorrect rc) {  // cppcheck-suppress passedByValue ; as established
    SOAV_ASSERT(equsize.width > 0 && equsize.height > 0);
    SOAV_ASSERT(projsize.width > 0 && projsize.height > 0);
    SOAV_ASSERT(projradius > 0 && projradius < projsize.width / 2.0 && projradius < projsize.height / 2.0);
    EquidistantTransMap map;
    map.equsize = equsize;
    map.projsize = projsize;
    map.bandheight = bandheight;
    map_plane(&map.ymapx, &map.ymapy, luma_mapper(equsize, projsize, projradius, bandheight, rc));
    map_plane(&map.uvmapx, &map.uvmapy, chroma_mapper(equsize, projsize, projradius, bandheight, rc));
    return map;
}

// ---- Stitching and correction ----

namespace {

// Samples one plane out of its sources, stacked in the order that the tables address.
cv::Mat remap_stacked(const std::vector<cv::Mat>& sources, const cv::Mat& mapx, const cv::Mat& mapy,
                      int interpolation) {
    cv::Mat stack, plane;
    cv::vconcat(sources, stack);
    cv::remap(stack, plane, mapx, mapy, interpolation, cv::BORDER_CONSTANT, cv::Scalar(0));
    return plane;
}

}  // namespace

void convert_equirectangular_with_map(ImageFrame* out, ImageFrame* frame, ImageFrame* frame2, ImageFrame* bandImage,
                                      EquidistantTransMap* transmap, int interpolation) {
    SOAV_ASSERT_REPORT(
        frame->frameType != FRAME_TYPE_NOTLOAD && frame2->frameType != FRAME_TYPE_NOTLOAD &&
            (transmap->bandheight == 0 || (transmap->bandheight > 0 && bandImage->frameType != FRAME_TYPE_NOTLOAD)),
        "frame->frameType != FRAME_TYPE_NOTLOAD && frame2->frameType != FRAME_TYPE_NOTLOAD && (transmap->bandheight "
        "== 0 || transmap->bandheight > 0 && bandImage->frameType != FRAME_TYPE_NOTLOAD)",
        __LINE__);
    SOAV_ASSERT_REPORT(
        frame->frameType == frame2->frameType &&
            (transmap->bandheight == 0 || (transmap->bandheight > 0 && frame->frameType == bandImage->frameType)),
        "frame->frameType == frame2->frameType && (transmap->bandheight == 0 || transmap->bandheight > 0 && "
        "frame->frameType == bandImage->frameType)",
        __LINE__);
    SOAV_ASSERT(frame->YUVMats.size() == 3 && transmap->projsize.width == frame->YUVMats[0].cols &&
                transmap->projsize.height == frame->YUVMats[0].rows && frame2->YUVMats.size() == 3 &&
                transmap->projsize.width == frame2->YUVMats[0].cols &&
                transmap->projsize.height == frame2->YUVMats[0].rows);
    SOAV_ASSERT(transmap->bandheight == 0 || (transmap->bandheight > 0 && bandImage->YUVMats.size() == 3 &&
                                              transmap->projsize.width == bandImage->YUVMats[0].cols &&
                                              bandImage->YUVMats[0].rows == transmap->bandheight));

    const bool half_chroma = frame->frameType == FRAME_TYPE_YUV420;
    std::vector<cv::Mat> planes;
    for (size_t i = 0; i < 3; ++i) {
        std::vector<cv::Mat> sources{frame->YUVMats[i], frame2->YUVMats[i]};
        // A loaded band is stacked even where the tables never point into it.
        if (bandImage->frameType != FRAME_TYPE_NOTLOAD) {
            sources.push_back(bandImage->YUVMats[i]);
        }
        const bool chroma_tables = i > 0 && half_chroma;
        planes.push_back(remap_stacked(sources, chroma_tables ? transmap->uvmapx : transmap->ymapx,
                                       chroma_tables ? transmap->uvmapy : transmap->ymapy, interpolation));
    }
    out->frameType = frame->frameType;
    // Not cleared first, deliberately: an `out` that is not empty keeps its planes in front.
    out->YUVMats.insert(out->YUVMats.end(), planes.begin(), planes.end());
}

void avcorrect_with_map(ImageFrame* frame, YuvCorrectMap* map) {
    SOAV_ASSERT(frame->frameType != FRAME_TYPE_NOTLOAD);
    SOAV_ASSERT(frame->YUVMats.size() == 3 && frame->YUVMats[0].cols > 0 && frame->YUVMats[0].rows > 0);
    const struct {
        const uint8_t* table;
        uint8_t enabled;
    } corrections[3] = {{map->ytable, map->yenabled}, {map->utable, map->uenabled}, {map->vtable, map->venabled}};
    for (size_t i = 0; i < 3; ++i) {
        if (!corrections[i].enabled) {
            continue;
        }
        // Planes are continuous, so that a plane is one run of bytes.
        uint8_t* const bytes = frame->YUVMats[i].data;
        const uint8_t* const table = corrections[i].table;
        std::transform(bytes, bytes + frame->YUVMats[i].total(), bytes, [table](uint8_t b) { return table[b]; });
    }
}
