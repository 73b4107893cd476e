// The picture functions: tables, stitching, correction and the ways into and out of ImageFrame.
//
// Their preconditions are assertions that stay on in every build type: a broken one is a programming error
// and stops the process with a report that names the function, src/soavfunc, the line and the expression.
#pragma once

#include "projection/correct_map.h"
#include "projection/equidistant_map.h"
#include "projection/image_frame.h"

struct AVFrame;

// Copies a planar 8-bit 4:2:0 or 4:2:2 picture; of 4:2:2 the upper half of the chroma rows (deliberately: the
// writer converts such frames first). Chroma has floor(W/2) columns and floor(H/2) rows. A picture with an
// empty plane gives FRAME_TYPE_NOTLOAD. Asserts the format.
ImageFrame imageframe_from_avframe(AVFrame* frame);

// --- Kept for users who bring tables, or a point or a picture of their own; the library itself never calls them ---

// Builds the tables for a panorama of `equsize` out of two lens pictures of `projsize` whose circle of
// `projradius` pixels is 90 degrees from the lens axis. `bandheight`: rows of the rearranged band, or 0.
// Works on all of OpenCV's threads; the tables are the same at any number of them.
// Asserts that the sizes are positive and that the radius is, and is less than half of the picture's sides.
EquidistantTransMap create_equidistantmap(ImageSize equsize, ImageSize projsize, double projradius, int bandheight,
                                          RotationCorrect rc);

// Source column *u and row *v of panorama pixel (x, y), in the stack that EquidistantTransMap describes: the plain
// form of what create_equidistantmap tabulates.
//
// The panorama's columns run over 360 degrees of longitude, its rows from the top over 180 degrees. The viewing
// sphere is turned about y, then x, then z; lens 1 then looks along z, lens 2 against it, and each picture's
// distance from `center` grows with the angle from its axis, to `radius` at 90 degrees. At 90 degrees exactly,
// lens 2 is sampled. About that seam a ring as high as the band's (`bandheight` - 6) / 2 rows is sampled from the
// band; under 6 rows there is no ring. Sizes and radius are those of the plane, angles in radians.
void uvpoint_from_equidistantxypoint(double* u, double* v, int x, int y, ImageSize equsize, ImageSize projsize,
                                     ImagePoint center, int radius, int bandheight, double frame1angle,
                                     double frame2angle, double xangle, double zangle, double yangle);

// Stitches one pair into `out`, an empty frame. `bandImage` may be FRAME_TYPE_NOTLOAD; `interpolation` is an
// OpenCV code. Samples outside the sources are 0. Frames of another type than FRAME_TYPE_YUV420 have chroma of the
// luma's size, and so has their panorama.
// Asserts that the pictures are loaded, of one type and of the sizes that the tables were built for.
void convert_equirectangular_with_map(ImageFrame* out, ImageFrame* frame, ImageFrame* frame2, ImageFrame* bandImage,
                                      EquidistantTransMap* transmap, int interpolation);

// Replaces each byte of the planes whose flag is set by its entry in the table, in place; the planes are
// continuous. Asserts that the frame is loaded, with three planes and a Y plane that is not empty.
void avcorrect_with_map(ImageFrame* frame, YuvCorrectMap* map);

// The picture as R, G, B bytes of the Y plane's size; chroma is scaled up bilinearly. Asserts that the frame is
// loaded and has three planes.
cv::Mat rgbmat_from_imageframe(ImageFrame imageframe);
