// The picture functions: tables, stitching, correction and the ways into and out of ImageFrame.
//
// Their preconditions are assertions that stay on in every build type: a broken one is a programming error
// and stops the process with a report that names the function, src/soavfunc, the line and the expression.
#pragma once

#include "projection/correct_map.h"
#include "projection/equidistant_map.h"
#include "projection/image_frame.h"

struct AVFrame;

// The picture as R, G, B bytes of the Y plane's size; chroma is scaled up bilinearly.
cv::Mat rgbmat_from_imageframe(ImageFrame imageframe);

// Source column *u and row *v of panorama pixel (x, y); the plain form of what create_equidistantmap tabulates.
void uvpoint_from_equidistantxypoint(double* u, double* v, int x, int y, ImageSize equsize, ImageSize projsize,
                                     ImagePoint center, int radius, int bandheight, double frame1angle,
                                     double frame2angle, double xangle, double zangle, double yangle);

// Builds the tables for a panorama of `equsize` out of two lens pictures of `projsize` whose circle of
// `projradius` pixels is 90 degrees from the lens axis. `bandheight`: rows of the rearranged band, or 0.
EquidistantTransMap create_equidistantmap(ImageSize equsize, ImageSize projsize, double projradius, int bandheight,
                                          RotationCorrect rc);

// Stitches one pair into `out`, an empty frame. `bandImage` may be FRAME_TYPE_NOTLOAD; `interpolation` is an
// OpenCV code.
void convert_equirectangular_with_map(ImageFrame* out, ImageFrame* frame, ImageFrame* frame2, ImageFrame* bandImage,
                                      EquidistantTransMap* transmap, int interpolation);

// Replaces each byte of the planes whose flag is set by its entry in the table, in place.
void avcorrect_with_map(ImageFrame* frame, YuvCorrectMap* map);

// Copies a planar 8-bit 4:2:0 or 4:2:2 picture; of 4:2:2 the upper half of the chroma rows (deliberately: the
// writer converts such frames first). Chroma has floor(W/2) columns and floor(H/2) rows. A picture with an
// empty plane gives FRAME_TYPE_NOTLOAD.
ImageFrame imageframe_from_avframe(AVFrame* frame);
