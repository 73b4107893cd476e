// Pairs of lens pictures.
#pragma once

#include <string>

#include "sample/options.h"

namespace sample {

struct StillOptions : ShotOptions {
    int quality = 2;
    int code = -1;  // the number to burn in, or none
    bool exif = true;
    std::string xmp_path;  // a packet to put into an XMP segment, or empty
};

void write_stills(const StillOptions& options);

}  // namespace sample
