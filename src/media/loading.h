// Pictures out of files.
#pragma once

#include "projection/image_frame.h"

// The first picture of the file, scaled to `width` columns, as 4:2:0 planes in limited range; its frameType is
// `type`. FRAME_TYPE_NOTLOAD when the file cannot be opened or holds no picture. Throws a text when the scaled
// picture would be higher than the stitcher can address.
ImageFrame imageframe_from_imagefile(const char* path, int width, ImageFrameType type);

// The band picture, a strip that covers the seam ring once around: scaled to twice `width` columns, then each
// plane's left half above its right half, each framed by copies of its edge rows so that interpolation never
// reaches the other half: 2R + 6 rows of a plane of R. FRAME_TYPE_NOTLOAD as above.
ImageFrame imageframe_from_bandfile(const char* path, int width, ImageFrameType type);
