// Which values of a lens picture's EXIF hold for the panorama too, and in which form the standard has them.
#pragma once

#include <cstdint>

#include "metadata/tiff.h"

enum ExifTag : uint16_t {
    kMake = 0x010F,
    kModel = 0x0110,
    kOrientation = 0x0112,
    kXResolution = 0x011A,
    kYResolution = 0x011B,
    kResolutionUnit = 0x0128,
    kDateTime = 0x0132,
    kYCbCrPositioning = 0x0213,
    kPhotoPointer = 0x8769,
    kPlacePointer = 0x8825,
    kExifVersion = 0x9000,
    kDateTimeOriginal = 0x9003,
    kDateTimeDigitized = 0x9004,
    kOffsetTime = 0x9010,
    kOffsetTimeOriginal = 0x9011,
    kOffsetTimeDigitized = 0x9012,
    kComponentsConfiguration = 0x9101,
    kSubSecTime = 0x9290,
    kSubSecTimeOriginal = 0x9291,
    kSubSecTimeDigitized = 0x9292,
    kFlashpixVersion = 0xA000,
    kColorSpace = 0xA001,
    kPixelXDimension = 0xA002,
    kPixelYDimension = 0xA003,
};

enum PlaceTag : uint16_t {
    kVersion = 0,
    kLatitudeRef = 1,
    kLatitude = 2,
    kLongitudeRef = 3,
    kLongitude = 4,
    kAltitudeRef = 5,
    kAltitude = 6,
};

// What of a directory's entries is known and well-formed, in the types of the standard: of the image (IFD0), of the
// photograph (Exif IFD), of the place (GPS IFD).
TiffDirectory image_values(const TiffReader& block, const TiffEntries& entries);
TiffDirectory photo_values(const TiffReader& block, const TiffEntries& entries);
TiffDirectory place_values(const TiffReader& block, const TiffEntries& entries);
