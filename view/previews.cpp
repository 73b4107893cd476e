#include "previews.h"

#include <algorithm>

#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/replies.h"

namespace {

constexpr size_t kMostBytes = size_t{512} << 20;

// As the library tells: 3.75 bytes for each pixel of a lens picture.
size_t bytes_of(int lens_width) {
    const auto width = static_cast<size_t>(std::max(lens_width, 0));
    return width * width * 15 / 4;
}

}  // namespace

std::string Previews::make(const ExportJob& job, const std::array<FileVersion, 2>& lenses, int lens_width) {
    const std::lock_guard<std::mutex> lock(mutex_);
    NQ360_SHOT* const shot = shot_of(job, lenses, lens_width);
    std::string jpeg;
    const Outcome outcome = preview_panorama(job, &jpeg, shot);
    if (outcome.state != NQ360_FINISHED) {
        throw CommandError(export_failure(read_reply(outcome.reply, Operation::kExport), job));
    }
    return jpeg;
}

NQ360_SHOT* Previews::shot_of(const ExportJob& job, const std::array<FileVersion, 2>& lenses, int lens_width) {
    const auto found =
        std::find_if(kept_.begin(), kept_.end(), [&lenses](const Kept& one) { return one.lenses == lenses; });
    if (found != kept_.end()) {
        kept_.splice(kept_.begin(), kept_, found);
        return kept_.front().shot.get();
    }
    const size_t bytes = bytes_of(lens_width);
    make_room(bytes);
    Outcome outcome;
    ShotHandle shot = open_shot(job, &outcome);
    if (!shot) {
        throw CommandError(export_failure(read_reply(outcome.reply, Operation::kExport), job));
    }
    kept_.push_front({lenses, std::move(shot), bytes});
    return kept_.front().shot.get();
}

// Before the next one is opened, which takes so much.
void Previews::make_room(size_t bytes) {
    size_t all = bytes;
    for (const Kept& one : kept_) {
        all += one.bytes;
    }
    for (; all > kMostBytes && !kept_.empty(); kept_.pop_back()) {
        all -= kept_.back().bytes;
    }
}
