#include "previews.h"

#include <algorithm>

#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/replies.h"

namespace {

constexpr size_t kMostBytes = size_t{512} << 20;

// As the library tells: 3.75 bytes for each pixel of a lens picture.
size_t bytes_of(const std::string& reply) {
    const auto width = static_cast<size_t>(std::max<int64_t>(last_number(reply, "width"), 0));
    return width * width * 15 / 4;
}

}  // namespace

std::string Previews::make(const ExportJob& job, const std::array<FileVersion, 2>& lenses) {
    const std::lock_guard<std::mutex> lock(mutex_);
    NQ360_SHOT* const shot = shot_of(job, lenses);
    std::string jpeg;
    const Outcome outcome = preview_panorama(job, &jpeg, shot);
    if (outcome.state != NQ360_FINISHED) {
        throw CommandError(export_failure(read_reply(outcome.reply, Operation::kExport), job));
    }
    return jpeg;
}

NQ360_SHOT* Previews::shot_of(const ExportJob& job, const std::array<FileVersion, 2>& lenses) {
    const auto found =
        std::find_if(kept_.begin(), kept_.end(), [&lenses](const Kept& one) { return one.lenses == lenses; });
    if (found != kept_.end()) {
        kept_.splice(kept_.begin(), kept_, found);
        return kept_.front().shot.get();
    }
    Outcome outcome;
    ShotHandle shot = open_shot(job, &outcome);
    if (!shot) {
        throw CommandError(export_failure(read_reply(outcome.reply, Operation::kExport), job));
    }
    kept_.push_front({lenses, std::move(shot), bytes_of(outcome.reply)});
    size_t bytes = 0;
    for (auto kept = kept_.begin(); kept != kept_.end();) {
        bytes += kept->bytes;
        kept = bytes > kMostBytes && kept != kept_.begin() ? kept_.erase(kept) : std::next(kept);
    }
    return kept_.front().shot.get();
}
