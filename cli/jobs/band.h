// The picture that is to lie over the seam.
#pragma once

#include <string>

// Throws CommandError when the file is none, would cover the whole panorama, or is a PNG with transparency, which
// would be lost. What else cannot be a band is told by the library.
void check_band(const std::string& path);
