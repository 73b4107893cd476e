#include "metadata/shot_exif.h"

#include <cmath>
#include <cstdio>

#include "metadata/big_endian.h"
#include "metadata/shot_values.h"

namespace {

TiffEntries entries_behind(const TiffReader& block, const TiffEntries& entries, uint16_t pointer) {
    const auto entry = entries.find(pointer);
    const bool leads_on = entry != entries.end() && entry->second.type == TiffType::kLong;
    return block.entries(leads_on ? block.number(entry->second.at, 4) : 0);
}

// Empty when it is not there.
std::string text_of(const TiffDirectory& directory, uint16_t tag) {
    const auto value = directory.find(tag);
    return value == directory.end() ? "" : value->second.bytes.c_str();
}

// The rational at an index; NaN when it is not there.
double rational_of(const TiffDirectory& directory, uint16_t tag, size_t index) {
    const auto value = directory.find(tag);
    if (value == directory.end()) {
        return NAN;
    }
    const std::string& bytes = value->second.bytes;
    return static_cast<double>(from_big_endian(bytes, 8 * index, 4)) /
           static_cast<double>(from_big_endian(bytes, 8 * index + 4, 4));
}

// Degrees, minutes and seconds as degrees with a sign; NaN when they are not told.
double degrees_of(const TiffDirectory& place, uint16_t tag, uint16_t ref_tag, const char* negative) {
    const std::string ref = text_of(place, ref_tag);
    const double degrees =
        rational_of(place, tag, 0) + rational_of(place, tag, 1) / 60 + rational_of(place, tag, 2) / 3600;
    return ref.empty() ? NAN : (ref == negative ? -degrees : degrees);
}

// With a sign and decimals, the point in every locale.
std::string signed_decimal(double value, int whole_digits, int decimals) {
    const long long unit = std::llround(std::pow(10, decimals));
    const long long scaled = std::llround(std::fabs(value) * static_cast<double>(unit));
    char text[64];
    snprintf(text, sizeof text, "%c%0*lld.%0*lld", value < 0 ? '-' : '+', whole_digits, scaled / unit, decimals,
             scaled % unit);
    return text;
}

}  // namespace

ShotExif read_shot_exif(const std::string& block) {
    const TiffReader reader(block);
    const TiffEntries entries = reader.entries(reader.first_directory());
    return {image_values(reader, entries), photo_values(reader, entries_behind(reader, entries, kPhotoPointer)),
            place_values(reader, entries_behind(reader, entries, kPlacePointer))};
}

std::optional<CaptureTime> capture_time(const ShotExif& shot) {
    const bool has_original = shot.photo.count(kDateTimeOriginal) != 0;
    const std::string date = text_of(shot.photo, has_original ? kDateTimeOriginal : kDateTimeDigitized);
    const std::string decimals = text_of(shot.photo, has_original ? kSubSecTimeOriginal : kSubSecTimeDigitized);
    const std::string offset = text_of(shot.photo, has_original ? kOffsetTimeOriginal : kOffsetTimeDigitized);
    return parse_capture_time(date + (decimals.empty() ? "" : "." + decimals) + offset);
}

void set_capture_time(const CaptureTime& time, ShotExif* shot) {
    struct Tags {
        TiffDirectory* directory;
        uint16_t date;
        uint16_t decimals;
        uint16_t offset;
    };
    for (const Tags& tags : {Tags{&shot->image, kDateTime, kSubSecTime, kOffsetTime},
                             Tags{&shot->photo, kDateTimeOriginal, kSubSecTimeOriginal, kOffsetTimeOriginal},
                             Tags{&shot->photo, kDateTimeDigitized, kSubSecTimeDigitized, kOffsetTimeDigitized}}) {
        (*tags.directory)[tags.date] = tiff_text(exif_text(time));
        shot->photo.erase(tags.decimals);
        shot->photo.erase(tags.offset);
        if (!time.fraction.empty()) {
            shot->photo[tags.decimals] = tiff_text(time.fraction);
        }
        if (!time.offset.empty()) {
            shot->photo[tags.offset] = tiff_text(time.offset);
        }
    }
}

std::string location(const ShotExif& shot) {
    const double latitude = degrees_of(shot.place, kLatitude, kLatitudeRef, "S");
    const double longitude = degrees_of(shot.place, kLongitude, kLongitudeRef, "W");
    if (!(std::fabs(latitude) <= 90 && std::fabs(longitude) <= 180)) {
        return "";
    }
    const double height = rational_of(shot.place, kAltitude, 0);
    const auto below = shot.place.find(kAltitudeRef);
    const bool is_below = below != shot.place.end() && below->second.bytes[0] == 1;
    const std::string altitude = std::isnan(height) ? "" : signed_decimal(is_below ? -height : height, 1, 3);
    return signed_decimal(latitude, 2, 6) + signed_decimal(longitude, 3, 6) + altitude + "/";
}

std::string camera_make(const ShotExif& shot) {
    return text_of(shot.image, kMake);
}

std::string camera_model(const ShotExif& shot) {
    return text_of(shot.image, kModel);
}

std::string panorama_exif(const ShotExif& shot, int width, int height) {
    ShotExif kept = shot;
    kept.image[kOrientation] = tiff_short(1);
    kept.image[kXResolution] = tiff_rational(72, 1);
    kept.image[kYResolution] = tiff_rational(72, 1);
    kept.image[kResolutionUnit] = tiff_short(2);    // inches
    kept.image[kYCbCrPositioning] = tiff_short(1);  // centred, as the encoder subsamples
    kept.photo[kExifVersion] = tiff_undefined("0232");
    kept.photo[kComponentsConfiguration] = tiff_undefined({1, 2, 3, 0});  // Y, Cb, Cr
    kept.photo[kFlashpixVersion] = tiff_undefined("0100");
    kept.photo.emplace(kColorSpace, tiff_short(1));  // sRGB
    kept.photo[kPixelXDimension] = tiff_long(static_cast<uint32_t>(width));
    kept.photo[kPixelYDimension] = tiff_long(static_cast<uint32_t>(height));
    if (!kept.place.empty()) {
        kept.place.emplace(kVersion, TiffValue{TiffType::kByte, {2, 3, 0, 0}});
    }
    return tiff_block(kept.image, kept.photo, kept.place);
}
