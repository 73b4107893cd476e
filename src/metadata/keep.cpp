#include "metadata/keep.h"

#include "metadata/jpeg.h"
#include "metadata/spherical.h"

namespace {

// Lens 1's, with the time of `datetime` in the place of another one.
ShotExif exif_to_keep(const KeptMetadata& kept, const std::string& datetime) {
    ShotExif exif = kept.exif;
    const std::optional<CaptureTime> shot = capture_time(exif);
    const std::optional<CaptureTime> given = parse_capture_time(datetime);
    // Of the same time lens 1 may tell more.
    if (given && !(shot && exif_text(*given) == exif_text(*shot))) {
        set_capture_time(*given, &exif);
    }
    return exif;
}

// Whether it is to stand in the spherical text as it is.
bool is_free_text(const std::string& datetime) {
    return !datetime.empty() && !parse_capture_time(datetime);
}

}  // namespace

void write_picture_metadata(const char* path, int width, int height, const KeptMetadata& kept, const char* datetime) {
    const std::string given = datetime ? datetime : "";
    const ShotExif exif = exif_to_keep(kept, given);
    const std::optional<CaptureTime> time = capture_time(exif);
    const std::string date = is_free_text(given) || !time ? given : iso_text(*time);
    _jpeg file(path, true);
    file.insert_metadata(panorama_exif(exif, width, height), gpano_packet(width, height, date));
    file.close_stream();
}
