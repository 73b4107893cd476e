// Where the pixels of one plane of the panorama are sampled: the stitching tables of that plane, row by row.
#pragma once

#include <vector>

#include "projection/equidistant_map.h"
#include "projection/image_frame.h"

// What is the same for every pixel of one plane.
struct PlaneSources {
    ImageSize size;  // of each lens picture
    ImagePoint center;
    int radius;
    int bandheight;
    double frame1angle;
    double frame2angle;
};

// One pixel, as uvpoint_from_equidistantxypoint describes.
void uvpoint_of_panorama_point(double* u, double* v, int x, int y, ImageSize equsize, const PlaneSources& sources,
                               const RotationCorrect& rc, const ViewTurn& view = {});

struct Vector3 {
    double x, y, z;
};

struct Rotation {
    Vector3 x, y, z;  // the rows of the matrix
};

// Rows are independent of each other and may be mapped on any thread.
class PlaneMapper {
  public:
    // `equsize`: of the panorama's plane.
    // By `offset` pixels to the right and down of a pixel's own place is where it is sampled.
    PlaneMapper(ImageSize equsize, const PlaneSources& sources, const RotationCorrect& rc, const ViewTurn& view,
                double offset);

    // Fills row `y` of the tables, both as wide as the plane.
    void map_row(int y, float* mapx, float* mapy) const;

    ImageSize size() const { return equsize_; }

  private:
    // A coordinate relative to the centre of the lens picture, before the factor phi / sin(phi), as linear forms
    // of the panorama point: common + apart for lens 1, common - apart for lens 2. That spares the inner loop a
    // branch, and so lets compilers vectorise it.
    struct LensForms {
        Vector3 common, apart;
    };
    static LensForms lens_forms(const Vector3& first, const Vector3& second);

    void map_unsettled_points(int y, float* mapx, float* mapy) const;

    double colatitude_of(int y) const;

    ImageSize equsize_;
    double offset_;
    PlaneSources sources_;
    Rotation rotation_;
    LensForms u_, v_;
    std::vector<double> cos_longitude_, sin_longitude_;  // per column

    // |cos(phi)| between which a point is certainly in a lens picture and its distance well conditioned.
    double settled_above_, settled_below_;
    // Pixels by which the quick coordinates and those of uvpoint_from_sphere can differ, with a margin.
    double error_bound_;
};

// The mappers of the Y plane, and of U and V, for what create_equidistantmap is given, a turn of the look and the
// places of the pixels.
PlaneMapper luma_mapper(ImageSize equsize, ImageSize projsize, double projradius, int bandheight,
                        const RotationCorrect& rc, const ViewTurn& view = {}, double offset = 0);
PlaneMapper chroma_mapper(ImageSize equsize, ImageSize projsize, double projradius, int bandheight,
                          const RotationCorrect& rc, const ViewTurn& view = {}, double offset = 0);
