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

// Where lens 1 (0) or lens 2 (1) shows the direction at `phi` from lens 1's axis and the azimuth `psi` about it,
// radians; past 90 degrees from the lens's own axis too, in or outside its picture.
void uvpoint_of_lens(double* u, double* v, int lens, const PlaneSources& sources, double phi, double psi);

// Columns of a row, from `first` up to but not `end`.
struct ColumnSpan {
    int first;
    int end;
};

struct Vector3 {
    double x, y, z;
};

struct Rotation {
    Vector3 x, y, z;  // the rows of the matrix
};

// Value at longitude l: cosine * cos(l) + sine * sin(l) + constant.
struct RowForm {
    double cosine, sine, constant;

    double at(double cos_longitude, double sin_longitude) const {
        return cosine * cos_longitude + sine * sin_longitude + constant;
    }
};

// What the pixels of a row share.
struct RowForms {
    RowForm axis;  // cos(phi)
    RowForm u_common, u_apart, v_common, v_apart;
    double u_center, v_center, lens_height;
    double above, below, error;
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

    // Where row `y` is less than `width` from the seam.
    std::vector<ColumnSpan> seam_spans(int y, double width) const;

    // For the columns of such a span, where the lens that map_row does not sample shows the same, and its share when
    // both are mixed: half of 1 at the seam, falling to 0 at `width`. `sides`, an entry a column, tells which lens
    // map_row samples: 1 for lens 1, -1 for lens 2, 0 for none, where nothing is mixed.
    void map_other_lens(int y, ColumnSpan span, double width, const float* sides, float* mapx, float* mapy,
                        float* shares) const;

    // How far past 90 degrees from their axes both lenses lie wholly in their pictures, `margin` pixels
    // from the edges spared. Not below 0.
    double overlap(double margin) const;

    ImageSize size() const { return equsize_; }
    const PlaneSources& sources() const { return sources_; }

  private:
    // A coordinate relative to the centre of the lens picture, before the factor phi / sin(phi), as linear forms
    // of the panorama point: common + apart for lens 1, common - apart for lens 2. That spares the inner loop a
    // branch, and so lets compilers vectorise it.
    struct LensForms {
        Vector3 common, apart;
    };
    static LensForms lens_forms(const Vector3& first, const Vector3& second);

    RowForms forms_of_row(int y) const;
    void map_unsettled_points(int y, float* mapx, float* mapy) const;

    double colatitude_of(int y) const;

    ImageSize equsize_;
    double offset_;
    PlaneSources sources_;
    Rotation rotation_;
    LensForms u_, v_;
    std::vector<double> cos_longitude_, sin_longitude_;  // per column

    // |cos(phi)|, phi being the angle from a lens's axis, between which the quick way may settle a pixel: it is in a
    // lens picture and its distance from the centre well conditioned.
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
