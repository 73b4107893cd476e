// What is kept of a lens picture's EXIF, and the panorama's block that is made of it.
#include "metadata/shot_exif.h"

#include "check.h"

namespace {

constexpr size_t kSegmentRoom = 65527;

void require_same(const TiffDirectory& kept, const TiffDirectory& written) {
    for (const auto& [tag, value] : kept) {
        const auto again = written.find(tag);
        fuzz::require(again != written.end() && again->second == value, "what is kept is read back from the panorama");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ShotExif shot = read_shot_exif(std::string(reinterpret_cast<const char*>(data), size));
    const std::string block = panorama_exif(shot, 3840, 1920);
    fuzz::require(block.size() <= kSegmentRoom, "the panorama's block fits into a segment");
    const ShotExif again = read_shot_exif(block);
    require_same(shot.image, again.image);
    require_same(shot.photo, again.photo);
    require_same(shot.place, again.place);
    fuzz::require(location(shot) == location(again), "the place is the same");
    if (const std::optional<CaptureTime> time = capture_time(shot)) {
        set_capture_time(*time, &shot);
        const std::optional<CaptureTime> set = capture_time(shot);
        fuzz::require(set && iso_text(*set) == iso_text(*time), "a time that is set is told");
    }
    return 0;
}
