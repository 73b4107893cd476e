#include "projection/plane_mapper.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "projection/angles.h"
#include "projection/processor.h"

namespace {

double longitude_of_column(double x, int columns) {
    return x * (2 * kPi) / columns - kPi;
}

double colatitude_of_row(double y, int rows) {
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

// Rz(yaw) * Ry(-pitch) * Rx(roll), each right-handed: in the panorama's frame x is the look, y its right, z up. The
// columns of the matrix are what comes to lie in these three directions.
Rotation rotation_from_view(const ViewTurn& view) {
    const double sy = std::sin(view.yaw), cy = std::cos(view.yaw);
    const double sp = std::sin(view.pitch), cp = std::cos(view.pitch);
    const double sr = std::sin(view.roll), cr = std::cos(view.roll);
    return {{cy * cp, -sy * cr - cy * sp * sr, sy * sr - cy * sp * cr},
            {sy * cp, cy * cr - sy * sp * sr, -cy * sr - sy * sp * cr},
            {sp, cp * sr, cp * cr}};
}

Vector3 row_times(const Vector3& row, const Rotation& matrix) {
    return {row.x * matrix.x.x + row.y * matrix.y.x + row.z * matrix.z.x,
            row.x * matrix.x.y + row.y * matrix.y.y + row.z * matrix.z.y,
            row.x * matrix.x.z + row.y * matrix.y.z + row.z * matrix.z.z};
}

// From the panorama's frame to the lenses'.
Rotation rotation_of(const RotationCorrect& rc, const ViewTurn& view) {
    const Rotation camera = rotation_from_angles(rc.xangle, rc.zangle, rc.yangle);
    if (view.yaw == 0 && view.pitch == 0 && view.roll == 0) {
        return camera;  // without the zeros' signs that a product could change
    }
    const Rotation turn = rotation_from_view(view);
    return {row_times(camera.x, turn), row_times(camera.y, turn), row_times(camera.z, turn)};
}

// Rows of the band picture itself, without the six that its rearrangement adds.
double band_rows(int bandheight) {
    return (bandheight - 6.0) * 0.5;
}

// Half the angular height of the ring that the band covers. Negative, so that there is no ring, for fewer than
// six rows.
double band_half_angle(const PlaneSources& sources) {
    return kPi * band_rows(sources.bandheight) / sources.size.width * 0.5;
}

void uvpoint_in_band(double* u, double* v, const PlaneSources& sources, double phi, double psi) {
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

// The source position of the panorama point `p` on the sphere whose radius is that of the lens circle.
void uvpoint_from_sphere(double* u, double* v, const PlaneSources& sources, const Rotation& rotation,
                         const Vector3& p) {
    // Rounding takes the quotient past 1 at some angles.
    const double phi = std::acos(std::clamp(dot(rotation.z, p) / sources.radius, -1.0, 1.0));
    const double psi = std::atan2(dot(rotation.x, p), dot(rotation.y, p));
    const double half_angle = band_half_angle(sources);
    if (sources.bandheight > 0 && kPi / 2 - half_angle < phi && phi < kPi / 2 + half_angle) {
        uvpoint_in_band(u, v, sources, phi, psi);
    } else {
        uvpoint_of_lens(u, v, phi < kPi / 2 ? 0 : 1, sources, phi, psi);
    }
}

Vector3 sphere_point(double radius, double sin_colatitude, double cos_colatitude, double sin_longitude,
                     double cos_longitude) {
    return {radius * (sin_colatitude * cos_longitude), radius * (sin_colatitude * sin_longitude),
            radius * cos_colatitude};
}

}  // namespace

void uvpoint_of_lens(double* u, double* v, int lens, const PlaneSources& sources, double phi, double psi) {
    const double pixels_per_radian = sources.radius / (kPi / 2);
    if (lens == 0) {
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

void uvpoint_of_panorama_point(double* u, double* v, int x, int y, ImageSize equsize, const PlaneSources& sources,
                               const RotationCorrect& rc, const ViewTurn& view) {
    const double longitude = longitude_of_column(x, equsize.width);
    const double colatitude = colatitude_of_row(y, equsize.height);
    const Vector3 p = sphere_point(sources.radius, std::sin(colatitude), std::cos(colatitude), std::sin(longitude),
                                   std::cos(longitude));
    uvpoint_from_sphere(u, v, sources, rotation_of(rc, view), p);
}

// The quick way. Let q be a pixel's point on the unit sphere, turned into the axes of lens 1; phi the angle from the
// lens's axis to it, so that cos(phi) = q.z; and psi its azimuth about the axis, so that sin(phi) sin(psi) = q.x and
// sin(phi) cos(psi) = q.y. The azimuth is then never needed as an angle: a lens picture's coordinates are linear in q
// but for the factor phi / sin(phi), and along a row q itself is linear in the cosine and sine of the longitude. What
// is left to compute per pixel is four linear forms and a polynomial.
//
// A pixel is settled when that gives the very floats of uvpoint_from_sphere: it lies in a lens picture, not too near
// its centre, and rounding cannot make another float of it. The others are left to that function.

namespace {

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

}  // namespace

PlaneMapper::PlaneMapper(ImageSize equsize, const PlaneSources& sources, const RotationCorrect& rc,
                         const ViewTurn& view, double offset)
    : equsize_(equsize),
      offset_(offset),
      sources_(sources),
      rotation_(rotation_of(rc, view)),
      cos_longitude_(equsize.width),
      sin_longitude_(equsize.width) {
    for (int x = 0; x < equsize.width; ++x) {
        const double longitude = longitude_of_column(x + offset, equsize.width);
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

namespace {

// Marks what is left to uvpoint_from_sphere with a NaN in mapx. To be inlined, so that it is compiled for the
// processor of the caller.
[[gnu::always_inline]] inline void map_settled_points(const RowForms& row, const double* cosines, const double* sines,
                                                      int columns, float* mapx, float* mapy) {
    constexpr float kUnsettled = std::numeric_limits<float>::quiet_NaN();
    const RowForms forms = row;  // a copy, which writing to the tables cannot change
    for (int x = 0; x < columns; ++x) {
        const double c = cosines[x], s = sines[x];
        const double z = forms.axis.at(c, s);
        const double side = std::copysign(1.0, z);
        const double height = std::abs(z);
        const double stretch = arc_over_sine(height);
        const double u = forms.u_center + stretch * (forms.u_common.at(c, s) + side * forms.u_apart.at(c, s));
        const double v = forms.v_center - side * (forms.lens_height / 2) +
                         stretch * (forms.v_common.at(c, s) + side * forms.v_apart.at(c, s));
        const float low_u = static_cast<float>(u - forms.error), high_u = static_cast<float>(u + forms.error);
        const float low_v = static_cast<float>(v - forms.error), high_v = static_cast<float>(v + forms.error);
        const bool settled = (height > forms.above) & (height < forms.below) & (low_u == high_u) & (low_v == high_v);
        mapx[x] = settled ? low_u : kUnsettled;
        mapy[x] = low_v;
    }
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void map_settled_points_avx2(const RowForms& row, const double* cosines,
                                                             const double* sines, int columns, float* mapx,
                                                             float* mapy) {
    map_settled_points(row, cosines, sines, columns, mapx, mapy);
}
#endif

void map_settled_points_quickly(const RowForms& row, const double* cosines, const double* sines, int columns,
                                float* mapx, float* mapy) {
#if defined(__x86_64__)
    if (has_avx2()) {
        map_settled_points_avx2(row, cosines, sines, columns, mapx, mapy);
        return;
    }
#endif
    map_settled_points(row, cosines, sines, columns, mapx, mapy);
}

}  // namespace

double PlaneMapper::colatitude_of(int y) const {
    return colatitude_of_row(y + offset_, equsize_.height);
}

RowForms PlaneMapper::forms_of_row(int y) const {
    const double colatitude = colatitude_of(y);
    const double sine = std::sin(colatitude), cosine = std::cos(colatitude);
    const double lens_height = sources_.size.height;
    return {form_of_row(rotation_.z, sine, cosine),
            form_of_row(u_.common, sine, cosine),
            form_of_row(u_.apart, sine, cosine),
            form_of_row(v_.common, sine, cosine),
            form_of_row(v_.apart, sine, cosine),
            static_cast<double>(sources_.center.x),
            sources_.center.y + lens_height / 2,
            lens_height,
            settled_above_,
            settled_below_,
            error_bound_};
}

void PlaneMapper::map_row(int y, float* mapx, float* mapy) const {
    map_settled_points_quickly(forms_of_row(y), cos_longitude_.data(), sin_longitude_.data(), equsize_.width, mapx,
                               mapy);
    map_unsettled_points(y, mapx, mapy);
}

void PlaneMapper::map_unsettled_points(int y, float* mapx, float* mapy) const {
    const double colatitude = colatitude_of(y);
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

// ---- The ring about the seam ----

namespace {

// Columns whose longitudes lie between two; of a turn that begins at -180 degrees, wherever these are.
void add_span(double from, double to, int columns, double offset, std::vector<ColumnSpan>* spans) {
    const double per_radian = columns / (2 * kPi);
    const auto first = static_cast<int>(std::ceil((from + kPi) * per_radian - offset));
    const auto end = static_cast<int>(std::floor((to + kPi) * per_radian - offset)) + 1;
    for (const int turn : {-columns, 0, columns}) {
        const ColumnSpan span = {std::max(first + turn, 0), std::min(end + turn, columns)};
        if (span.first < span.end) {
            spans->push_back(span);
        }
    }
}

}  // namespace

// Along a row the sine of the distance from the seam, which is cos(phi), is a constant and a cosine: it is small on
// two arcs, which may meet at one end or at both.
std::vector<ColumnSpan> PlaneMapper::seam_spans(int y, double width) const {
    const RowForm axis = forms_of_row(y).axis;
    const double amplitude = std::hypot(axis.cosine, axis.sine);
    const double limit = std::sin(width);
    if (std::abs(axis.constant) >= limit + amplitude) {
        return {};
    }
    const double middle = std::atan2(axis.sine, axis.cosine);
    const double near = std::acos(std::clamp((limit - axis.constant) / amplitude, -1.0, 1.0));
    const double far = std::acos(std::clamp((-limit - axis.constant) / amplitude, -1.0, 1.0));
    std::vector<ColumnSpan> spans;
    if (near == 0 && far == kPi) {
        spans.push_back({0, equsize_.width});
    } else if (near == 0) {
        add_span(middle - far, middle + far, equsize_.width, offset_, &spans);
    } else if (far == kPi) {
        add_span(middle + near, middle + 2 * kPi - near, equsize_.width, offset_, &spans);
    } else {
        add_span(middle + near, middle + far, equsize_.width, offset_, &spans);
        add_span(middle - far, middle - near, equsize_.width, offset_, &spans);
    }
    return spans;
}

namespace {

// What map_other_lens fills, without overlaps.
struct OtherLens {
    float* __restrict x;
    float* __restrict y;
    float* __restrict shares;
};

// As map_settled_points. Sines of at most a few degrees: series to the seventh power are exact to 1e-8.
[[gnu::always_inline]] inline void map_other_points(const RowForms& row, double width, const double* cosines,
                                                    const double* sines, int columns, const float* sides,
                                                    const OtherLens& other) {
    const RowForms forms = row;
    float* __restrict const mapx = other.x;
    float* __restrict const mapy = other.y;
    float* __restrict const shares = other.shares;
    const double per_width = 0.5 / width;
    for (int i = 0; i < columns; ++i) {
        const double c = cosines[i], s = sines[i];
        const double side = sides[i];
        const double z = side * forms.axis.at(c, s);
        const double square = z * z;
        const double past_seam = z * (1 + square * (1.0 / 6 + square * (3.0 / 40 + square * (15.0 / 336))));
        const double over_cosine = 1 + square * (1.0 / 2 + square * (3.0 / 8 + square * (5.0 / 16)));
        const double stretch = (kPi / 2 + past_seam) * over_cosine;
        const double u = forms.u_center + stretch * (forms.u_common.at(c, s) - side * forms.u_apart.at(c, s));
        const double v = forms.v_center + side * (forms.lens_height / 2) +
                         stretch * (forms.v_common.at(c, s) - side * forms.v_apart.at(c, s));
        const double part = 0.5 - per_width * past_seam;
        mapx[i] = static_cast<float>(u);
        mapy[i] = static_cast<float>(v);
        shares[i] = static_cast<float>(side * side * (part * part * (3 - 2 * part)));
    }
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void map_other_points_avx2(const RowForms& row, double width, const double* cosines,
                                                           const double* sines, int columns, const float* sides,
                                                           const OtherLens& other) {
    map_other_points(row, width, cosines, sines, columns, sides, other);
}
#endif

}  // namespace

void PlaneMapper::map_other_lens(int y, ColumnSpan span, double width, const float* sides, float* mapx, float* mapy,
                                 float* shares) const {
    const RowForms forms = forms_of_row(y);
    const double* const cosines = cos_longitude_.data() + span.first;
    const double* const sines = sin_longitude_.data() + span.first;
    const int columns = span.end - span.first;
    const OtherLens other = {mapx, mapy, shares};
#if defined(__x86_64__)
    if (has_avx2()) {
        map_other_points_avx2(forms, width, cosines, sines, columns, sides, other);
        return;
    }
#endif
    map_other_points(forms, width, cosines, sines, columns, sides, other);
}

double PlaneMapper::overlap(double margin) const {
    const int to_edge = std::min({sources_.center.x, sources_.size.width - 1 - sources_.center.x, sources_.center.y,
                                  sources_.size.height - 1 - sources_.center.y});
    return sources_.radius > 0 ? std::max((to_edge - margin) * (kPi / 2) / sources_.radius - kPi / 2, 0.0) : 0;
}

PlaneMapper luma_mapper(ImageSize equsize, ImageSize projsize, double projradius, int bandheight,
                        const RotationCorrect& rc, const ViewTurn& view, double offset) {
    const ImagePoint center{projsize.width / 2, projsize.height / 2};
    return {equsize,
            {projsize, center, static_cast<int>(projradius), bandheight, rc.frame1angle, rc.frame2angle},
            rc,
            view,
            offset};
}

PlaneMapper chroma_mapper(ImageSize equsize, ImageSize projsize, double projradius, int bandheight,
                          const RotationCorrect& rc, const ViewTurn& view, double offset) {
    // Without a band this gives 3 rows, deliberately left so: fewer than six cover nothing.
    const int chroma_band = static_cast<int>((bandheight - 6.0) * 0.5 + 6);
    const ImagePoint center{projsize.width / 2 / 2, projsize.height / 2 / 2};
    return {{equsize.width / 2, equsize.height / 2},
            {{projsize.width / 2, projsize.height / 2},
             center,
             static_cast<int>(projradius / 2),
             chroma_band,
             rc.frame1angle,
             rc.frame2angle},
            rc,
            view,
            offset};
}
