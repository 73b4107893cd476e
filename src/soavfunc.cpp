#include "soavfunc.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "projection/large_pages.h"

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

// ---- Where a panorama pixel comes from, one at a time ----

namespace {

constexpr double kPi = 3.14159265358979323846;

struct Vector3 {
    double x, y, z;
};

struct Rotation {
    Vector3 x, y, z;  // the rows of the matrix
};

// What is the same for every pixel of one plane.
struct Sources {
    ImageSize size;  // of each lens picture
    ImagePoint center;
    int radius;
    int bandheight;
    double frame1angle;
    double frame2angle;
};

double longitude_of_column(int x, int columns) {
    return x * (2 * kPi) / columns - kPi;
}

double colatitude_of_row(int y, int rows) {
    return y * kPi / rows;
}

// Rz(zangle) * Rx(xangle) * Ry(yangle), each right-handed.
Rotation rotation_from_angles(double xangle, double zangle, double yangle) {
    const double sx = std::sin(xangle), cx = std::cos(xangle);
    const double sz = std::sin(zangle), cz = std::cos(zangle);
    const double sy = std::sin(yangle), cy = std::cos(yangle);
    return {{cz * cy - sx * sz * sy, -sz * cx, cz * sy + sx * sz * cy},
            {cz * sx * sy + sz * cy, cz * cx, sz * sy - cz * cy * sx},
            {-sy * cx, sx, cy * cx}};
}

double dot(const Vector3& a, const Vector3& b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}

// Rows of the band picture itself, without the six that its rearrangement adds.
double band_rows(int bandheight) {
    return (bandheight - 6.0) * 0.5;
}

// Half the angular height of the ring that the band covers. Negative, so that there is no ring, for fewer than
// six rows.
double band_half_angle(const Sources& sources) {
    return kPi * band_rows(sources.bandheight) / sources.size.width * 0.5;
}

void uvpoint_in_band(double* u, double* v, const Sources& sources, double phi, double psi) {
    const double width = sources.size.width;
    const double height = sources.size.height;
    double column = (3 * kPi / 2 - psi) * width / kPi;
    if (column > 2 * width) {
        column -= 2 * width;
    }
    const double row = height * (phi - (kPi / 2 - band_half_angle(sources))) / kPi;
    // The constants 2 and 4 skip the edge rows that the rearranged band repeats around its halves.
    if (column < width) {
        *u = std::min(width - 1, column);
        *v = 2 * height + row + 2;
    } else {
        *u = std::min(2 * width - 1, column) - width;
        *v = 2 * height + row + band_rows(sources.bandheight) + 4;
    }
}

void uvpoint_in_lens(double* u, double* v, const Sources& sources, double phi, double psi) {
    const double pixels_per_radian = sources.radius / (kPi / 2);
    if (phi < kPi / 2) {
        const double distance = phi * pixels_per_radian;
        const double angle = psi + sources.frame1angle;
        *u = sources.center.x + std::cos(angle) * distance;
        *v = sources.center.y + std::sin(angle) * distance;
    } else {
        // The second lens looks the other way, so its picture is mirrored.
        const double distance = (kPi - phi) * pixels_per_radian;
        const double angle = psi - kPi / 2 + sources.frame2angle;
        *u = sources.center.x + std::sin(angle) * distance;
        *v = sources.center.y + std::cos(angle) * distance + sources.size.height;
    }
}

// The source position of the panorama point `p` on the sphere whose radius is that of the lens circle.
void uvpoint_from_sphere(double* u, double* v, const Sources& sources, const Rotation& rotation, const Vector3& p) {
    // Rounding takes the quotient past 1 at some angles.
    const double phi = std::acos(std::clamp(dot(rotation.z, p) / sources.radius, -1.0, 1.0));
    const double psi = std::atan2(dot(rotation.x, p), dot(rotation.y, p));
    const double half_angle = band_half_angle(sources);
    if (sources.bandheight > 0 && kPi / 2 - half_angle < phi && phi < kPi / 2 + half_angle) {
        uvpoint_in_band(u, v, sources, phi, psi);
    } else {
        uvpoint_in_lens(u, v, sources, phi, psi);
    }
}

Vector3 sphere_point(double radius, double sin_colatitude, double cos_colatitude, double sin_longitude,
                     double cos_longitude) {
    return {radius * (sin_colatitude * cos_longitude), radius * (sin_colatitude * sin_longitude),
            radius * cos_colatitude};
}

}  // namespace

void uvpoint_from_equidistantxypoint(double* u, double* v, int x, int y, ImageSize equsize, ImageSize projsize,
                                     ImagePoint center, int radius, int bandheight, double frame1angle,
                                     double frame2angle, double xangle, double zangle, double yangle) {
    const double longitude = longitude_of_column(x, equsize.width);
    const double colatitude = colatitude_of_row(y, equsize.height);
    const Vector3 p =
        sphere_point(radius, std::sin(colatitude), std::cos(colatitude), std::sin(longitude), std::cos(longitude));
    const Sources sources{projsize, center, radius, bandheight, frame1angle, frame2angle};
    uvpoint_from_sphere(u, v, sources, rotation_from_angles(xangle, zangle, yangle), p);
}

// ---- The tables of a whole panorama ----
//
// The azimuth is never needed as an angle: with q the rotated point on the unit sphere, cos(psi) and sin(psi) are
// q.y and q.x over sin(phi), so that a lens picture's coordinates are linear in q but for the factor
// phi / sin(phi), and along a row q itself is linear in the cosine and sine of the longitude. What is left to
// compute per pixel is four linear forms and a polynomial. Where the result could round to another float than
// that of uvpoint_from_sphere, that function decides.

namespace {

// Value at longitude l: cosine * cos(l) + sine * sin(l) + constant.
struct RowForm {
    double cosine, sine, constant;

    double at(double cos_longitude, double sin_longitude) const {
        return cosine * cos_longitude + sine * sin_longitude + constant;
    }
};

// `form` as a function of the longitude, on the unit sphere's circle of the given colatitude.
RowForm form_of_row(const Vector3& form, double sin_colatitude, double cos_colatitude) {
    return {form.x * sin_colatitude, form.y * sin_colatitude, form.z * cos_colatitude};
}

Vector3 combine(double a, const Vector3& first, double b, const Vector3& second) {
    return {a * first.x + b * second.x, a * first.y + b * second.y, a * first.z + b * second.z};
}

// acos(z) / sqrt(1 - z * z) for 0 <= z <= 1, where it has no pole: the minimax polynomial of degree 15, whose
// relative error is below 3e-13.
inline double arc_over_sine(double z) {
    constexpr double kCoefficients[16] = {
        1.5707963267944884,  -0.9999999997906575,  0.7853981454354516,   -0.6666660526385559,
        0.5890375036896532,  -0.5332103389144311,  0.4899694603032984,   -0.45247208335990813,
        0.4119084678919474,  -0.3564980236936686,  0.2779566844787546,   -0.18294271026377124,
        0.09456559215310073, -0.03520472844594371, 0.008276508310384068, -0.0009147519503506388,
    };
    const double square = z * z;
    double even = kCoefficients[14];
    double odd = kCoefficients[15];
    for (int i = 12; i >= 0; i -= 2) {
        even = even * square + kCoefficients[i];
        odd = odd * square + kCoefficients[i + 1];
    }
    return even + odd * z;
}

// Fills the tables of one plane row by row; rows are independent of each other.
class PlaneMapper {
  public:
    PlaneMapper(ImageSize equsize, const Sources& sources, const RotationCorrect& rc);

    void map_row(int y, float* mapx, float* mapy) const;

  private:
    // A coordinate relative to the centre of the lens picture, before the factor phi / sin(phi), as linear forms
    // of the panorama point: common + apart for lens 1, common - apart for lens 2. That spares the inner loop a
    // branch, and so lets compilers vectorise it.
    struct LensForms {
        Vector3 common, apart;
    };
    static LensForms lens_forms(const Vector3& first, const Vector3& second);

    void map_unsettled_points(int y, float* mapx, float* mapy) const;

    ImageSize equsize_;
    Sources sources_;
    Rotation rotation_;
    LensForms u_, v_;
    std::vector<double> cos_longitude_, sin_longitude_;  // per column

    // |cos(phi)| between which a point is certainly in a lens picture and its distance well conditioned.
    double settled_above_, settled_below_;
    // Pixels by which the quick coordinates and those of uvpoint_from_sphere can differ, with a margin.
    double error_bound_;
};

PlaneMapper::PlaneMapper(ImageSize equsize, const Sources& sources, const RotationCorrect& rc)
    : equsize_(equsize),
      sources_(sources),
      rotation_(rotation_from_angles(rc.xangle, rc.zangle, rc.yangle)),
      cos_longitude_(equsize.width),
      sin_longitude_(equsize.width) {
    for (int x = 0; x < equsize.width; ++x) {
        const double longitude = longitude_of_column(x, equsize.width);
        cos_longitude_[x] = std::cos(longitude);
        sin_longitude_[x] = std::sin(longitude);
    }
    const double pixels_per_radian = sources.radius / (kPi / 2);
    const double c1 = pixels_per_radian * std::cos(rc.frame1angle), s1 = pixels_per_radian * std::sin(rc.frame1angle);
    const double c2 = pixels_per_radian * std::cos(rc.frame2angle), s2 = pixels_per_radian * std::sin(rc.frame2angle);
    u_ = lens_forms(combine(-s1, rotation_.x, c1, rotation_.y), combine(s2, rotation_.x, -c2, rotation_.y));
    v_ = lens_forms(combine(c1, rotation_.x, s1, rotation_.y), combine(c2, rotation_.x, s2, rotation_.y));

    constexpr double kRounding = 1e-11;
    const double band = sources.bandheight > 0 ? std::clamp(band_half_angle(sources), 0.0, kPi / 2) : 0;
    // A circle without a radius has no direction for any point: uvpoint_from_sphere says what becomes of it.
    settled_above_ = sources.radius > 0 ? std::sin(band) + kRounding : 2;
    // Closer to the lens axis than sin(phi) = 5e-4 the arc cosine magnifies rounding too much.
    settled_below_ = 1 - 5e-4 * 5e-4 / 2;
    error_bound_ = 1e-12 * (sources.size.width + 2.0 * sources.size.height +
                            sources.radius * (std::abs(rc.frame1angle) + std::abs(rc.frame2angle)));
}

PlaneMapper::LensForms PlaneMapper::lens_forms(const Vector3& first, const Vector3& second) {
    return {combine(0.5, first, 0.5, second), combine(0.5, first, -0.5, second)};
}

void PlaneMapper::map_row(int y, float* mapx, float* mapy) const {
    const double colatitude = colatitude_of_row(y, equsize_.height);
    const double sine = std::sin(colatitude), cosine = std::cos(colatitude);
    const RowForm axis = form_of_row(rotation_.z, sine, cosine);
    const RowForm u_common = form_of_row(u_.common, sine, cosine), u_apart = form_of_row(u_.apart, sine, cosine);
    const RowForm v_common = form_of_row(v_.common, sine, cosine), v_apart = form_of_row(v_.apart, sine, cosine);
    const double lens_height = sources_.size.height;
    const double u_center = sources_.center.x, v_center = sources_.center.y + lens_height / 2;
    const double above = settled_above_, below = settled_below_, error = error_bound_;
    const double* const cosines = cos_longitude_.data();
    const double* const sines = sin_longitude_.data();
    constexpr float kUnsettled = std::numeric_limits<float>::quiet_NaN();

    for (int x = 0; x < equsize_.width; ++x) {
        const double c = cosines[x], s = sines[x];
        const double z = axis.at(c, s);
        const double side = std::copysign(1.0, z);
        const double height = std::abs(z);
        const double stretch = arc_over_sine(height);
        const double u = u_center + stretch * (u_common.at(c, s) + side * u_apart.at(c, s));
        const double v = v_center - side * (lens_height / 2) + stretch * (v_common.at(c, s) + side * v_apart.at(c, s));
        const float low_u = static_cast<float>(u - error), high_u = static_cast<float>(u + error);
        const float low_v = static_cast<float>(v - error), high_v = static_cast<float>(v + error);
        const bool settled = (height > above) & (height < below) & (low_u == high_u) & (low_v == high_v);
        mapx[x] = settled ? low_u : kUnsettled;
        mapy[x] = low_v;
    }
    map_unsettled_points(y, mapx, mapy);
}

void PlaneMapper::map_unsettled_points(int y, float* mapx, float* mapy) const {
    const double colatitude = colatitude_of_row(y, equsize_.height);
    const double sine = std::sin(colatitude), cosine = std::cos(colatitude);
    for (int x = 0; x < equsize_.width; ++x) {
        if (!std::isnan(mapx[x])) {
            continue;
        }
        double u, v;
        const Vector3 p = sphere_point(sources_.radius, sine, cosine, sin_longitude_[x], cos_longitude_[x]);
        uvpoint_from_sphere(&u, &v, sources_, rotation_, p);
        mapx[x] = static_cast<float>(u);
        mapy[x] = static_cast<float>(v);
    }
}

void map_plane(cv::Mat* mapx, cv::Mat* mapy, ImageSize equsize, const Sources& sources, const RotationCorrect& rc) {
    create_large(mapx, equsize.height, equsize.width, CV_32FC1);
    create_large(mapy, equsize.height, equsize.width, CV_32FC1);
    const PlaneMapper mapper(equsize, sources, rc);
    cv::parallel_for_(cv::Range(0, equsize.height), [&](const cv::Range& rows) {
        for (int y = rows.start; y < rows.end; ++y) {
            mapper.map_row(y, mapx->ptr<float>(y), mapy->ptr<float>(y));
        }
    });
}

ImageSize half(ImageSize size) {
    return {size.width / 2, size.height / 2};
}

}  // namespace

EquidistantTransMap create_equidistantmap(ImageSize equsize, ImageSize projsize, double projradius, int bandheight,
                                          RotationCorrect rc) {
    SOAV_ASSERT(equsize.width > 0 && equsize.height > 0);
    SOAV_ASSERT(projsize.width > 0 && projsize.height > 0);
    SOAV_ASSERT(projradius > 0 && projradius < projsize.width / 2.0 && projradius < projsize.height / 2.0);
    EquidistantTransMap map;
    map.equsize = equsize;
    map.projsize = projsize;
    map.bandheight = bandheight;

    const ImagePoint center{projsize.width / 2, projsize.height / 2};
    const Sources luma{projsize, center, static_cast<int>(projradius), bandheight, rc.frame1angle, rc.frame2angle};
    map_plane(&map.ymapx, &map.ymapy, equsize, luma, rc);

    // Without a band this gives 3 rows, deliberately left so: fewer than six cover nothing.
    const int chroma_band = static_cast<int>((bandheight - 6.0) * 0.5 + 6);
    const Sources chroma{
        half(projsize), {center.x / 2, center.y / 2}, static_cast<int>(projradius / 2), chroma_band, rc.frame1angle,
        rc.frame2angle};
    map_plane(&map.uvmapx, &map.uvmapy, half(equsize), chroma, rc);
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
