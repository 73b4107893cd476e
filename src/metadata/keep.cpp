#include "metadata/keep.h"

#include <fstream>

#include "base/files.h"
#include "metadata/jpeg.h"
#include "metadata/mov.h"
#include "metadata/movie_index.h"
#include "metadata/movie_metadata.h"
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

// What cannot be read is not taken for what is not there.
void require_readable(const MetadataStream& file) {
    if (file.system_failed()) {
        throw_text("Can't read metadata: %s", file.error_text);
    }
}

KeptMetadata read_picture(const char* path) {
    _jpeg file(path, false);
    uint8_t* block = nullptr;
    KeptMetadata kept;
    if (file.exif_data(&block) == 0) {
        kept.exif = read_shot_exif(std::string(reinterpret_cast<const char*>(block), file.exif_length));
    }
    require_readable(file);
    kept.location = location(kept.exif);
    return kept;
}

KeptMetadata read_movie(const char* path) {
    _mov file(path, false);
    KeptMetadata kept;
    kept.exif = read_shot_exif(file.payload({"moov", "udta", "MKRI"}));
    kept.creation_time = movie_creation_time(&file);
    kept.location = movie_location(&file);
    require_readable(file);
    if (kept.location.empty()) {
        kept.location = location(kept.exif);
    }
    return kept;
}

// Seconds since 1970 at which the movie of this shot was taken. None: not told.
std::optional<int64_t> movie_time(const KeptMetadata& kept, const std::string& datetime) {
    const std::optional<CaptureTime> shot = capture_time(kept.exif);
    const std::optional<CaptureTime> header =
        kept.creation_time != 0 ? capture_time_of(kept.creation_time - kUnixEpoch) : std::nullopt;
    const std::optional<CaptureTime> given = parse_capture_time(datetime);
    const auto is_given = [&](const std::optional<CaptureTime>& time) {
        return time && given && exif_text(*time) == exif_text(*given);
    };
    const bool is_another = given && !is_given(shot) && !is_given(header);
    const std::optional<CaptureTime> time = is_another ? given : (header ? header : shot);
    return time ? std::optional<int64_t>(unix_seconds(*time)) : std::nullopt;
}

}  // namespace

KeptMetadata read_kept_metadata(const char* path) {
    char start[2] = {};
    // Only then: opening a pipe would wait.
    if (isRegularFile(path)) {
        std::ifstream file(path, std::ios::binary);
        file.read(start, sizeof start);
        if (file.bad()) {
            throw_text("Can't read metadata: the file cannot be read");
        }
    }
    return start[0] == '\xFF' && start[1] == '\xD8' ? read_picture(path) : read_movie(path);
}

void write_picture_metadata(const char* path, int width, int height, const KeptMetadata& kept, const char* datetime) {
    const std::string given = datetime ? datetime : "";
    const ShotExif exif = exif_to_keep(kept, given);
    const std::optional<CaptureTime> time = capture_time(exif);
    const std::string date = is_free_text(given) || !time ? given : iso_text(*time);
    _jpeg file(path, true);
    file.insert_metadata(panorama_exif(exif, width, height), gpano_packet(width, height, date));
    file.close_stream();
}

MovieTexts movie_texts(const KeptMetadata& kept, const char* datetime) {
    const std::string given = datetime ? datetime : "";
    const std::optional<int64_t> time = movie_time(kept, given);
    const std::string timestamp = is_free_text(given) || !time ? given : std::to_string(*time);
    return {time, timestamp, kept.location, camera_make(kept.exif), camera_model(kept.exif)};
}

void write_movie_metadata(const char* path, int width, int height, const MovieTexts& texts) {
    MovieIndex file(path);
    if (texts.time) {
        set_creation_time(*texts.time + kUnixEpoch, &file.moov);
    }
    add_user_text("\xA9xyz", texts.location, &file.moov);
    add_user_text("\xA9mak", texts.make, &file.moov);
    add_user_text("\xA9mod", texts.model, &file.moov);
    if (!add_spherical_video(spherical_video_document(width, height, texts.timestamp), &file.moov)) {
        throw_text("Can't write metadata: the movie has no video track");
    }
    file.write();
    file.close_stream();
}

void move_index_to_front(const char* path) {
    MovieIndex file(path);
    file.write_in_front();
    file.close_stream();
}
