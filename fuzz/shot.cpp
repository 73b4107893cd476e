// A shot of two small files: opened, looked at in two places, and matched. An input is a pair (pair.h), and in byte 1:
//
//   bit 0: the second place is a little later; bit 1: the panorama is turned, mixed and scaled; bit 2: it is of odd
//   size; bit 3: the match opens the files itself
#include <cstdint>

#include "pair.h"
#include "replies.h"

namespace {

using fuzz::Pair;

NQ360_EXPORT_OPTIONS options_of(const Pair& job, const std::string inputs[2]) {
    NQ360_EXPORT_OPTIONS options = fuzz::record_of(inputs);
    options.width = job.asks_for(2) ? 65 : 64;
    options.height = job.asks_for(2) ? 31 : 32;
    if (job.asks_for(1)) {
        options.pitch = -20;
        options.feather = 2;
        options.gain2[0] = 1.3;
        options.correct1[1] = 5;
    }
    return options;
}

void preview(const NQ360_EXPORT_OPTIONS& options, NQ360_SHOT* shot) {
    unsigned char* jpeg = nullptr;
    size_t size = 0;
    const bool finished = fuzz::finishes([&] { NQ360_preview(&options, shot, &jpeg, &size); });
    fuzz::require(finished == (jpeg != nullptr) && finished == (size > 0), "there is a picture just when it finished");
    fuzz::require(!jpeg || (jpeg[0] == 0xff && jpeg[1] == 0xd8), "the picture is a JPEG");
    NQ360_free(jpeg);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < fuzz::kPairHead) {
        return 0;
    }
    const Pair job = fuzz::pair_of(data, size);
    const std::string inputs[2] = {fuzz::written(job, 0), fuzz::written(job, 1)};
    NQ360_EXPORT_OPTIONS options = options_of(job, inputs);
    NQ360_SHOT* shot = nullptr;
    const bool opened = fuzz::finishes([&] { shot = NQ360_shot_open(&options); });
    fuzz::require(opened == (shot != nullptr), "there is a shot just when it was opened");
    if (opened) {
        preview(options, shot);
        options.start1 = job.asks_for(0) ? 0.04 : 0;
        preview(options, shot);
        fuzz::finishes([&] { NQ360_match(&options, job.asks_for(3) ? nullptr : shot); });
    }
    NQ360_shot_close(shot);
    fuzz::require_as_written(job, inputs);
    return 0;
}
