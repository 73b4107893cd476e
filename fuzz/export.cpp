// A whole export of two small files. An input is a pair (pair.h), and in it how they are exported:
//
//   byte 0    bit 2: the panorama has the other kind's name
//   byte 1    bits 0 and 1: whose sound; bit 2: from a little after the beginning; bit 3: to a little later; bit 4:
//             with options; bit 5: with kept metadata, for the web, in parts; bit 6: turned, mixed, scaled and
//             filtered; bit 7: of whole inputs alone, with AAC
#include <algorithm>

#include "pair.h"
#include "replies.h"

namespace {

using fuzz::Pair;

std::string output_of(const Pair& job) {
    const bool other = (job.kinds >> 2 & 1) != 0;
    const bool movie = job.is_movie(0) || job.is_movie(1);
    return fuzz::path_of(movie != other ? "panorama.mov" : "panorama.jpg");
}

NQ360_EXPORT_OPTIONS options_of(const Pair& job, const std::string inputs[2], const std::string& output) {
    NQ360_EXPORT_OPTIONS options = fuzz::record_of(inputs);
    options.output = output.c_str();
    options.width = 64;
    options.height = 32;
    options.audio_source = std::min((job.options & 3) - 1, 1);
    options.start1 = options.start2 = job.asks_for(2) ? 0.04 : 0;
    options.end1 = options.end2 = job.asks_for(3) ? 0.05 : 100;
    options.keep_metadata = options.web = job.asks_for(5);
    if (job.asks_for(6)) {
        options.yaw = 30;
        options.pitch = -20;
        options.roll = 10;
        options.feather = 2;
        options.gain2[0] = 1.3;
        options.filter = 1;
        options.quality = 95;
    }
    options.whole_inputs_only = job.asks_for(7);
    options.workers = job.asks_for(5) ? 2 : 0;
    options.sound_codec = job.asks_for(7) ? NQ360_SOUND_AAC : NQ360_SOUND_PCM;
    return options;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < fuzz::kPairHead) {
        return 0;
    }
    const Pair job = fuzz::pair_of(data, size);
    const std::string inputs[2] = {fuzz::written(job, 0), fuzz::written(job, 1)};
    const std::string output = output_of(job);
    const int no = CORRECT_NONE;
    const float start = job.asks_for(2) ? 0.04f : 0.0f;
    const float end = job.asks_for(3) ? 0.05f : 100.0f;
    const NQ360_EXPORT_OPTIONS options = options_of(job, inputs, output);
    const bool finished = fuzz::finishes([&] {
        if (job.asks_for(4)) {
            NQ360_export_with(&options);
            return;
        }
        NQ360_export(inputs[0].c_str(), inputs[1].c_str(), output.c_str(), nullptr, 64, 32, 90, no, no, no, 3, no, no,
                     (job.options & 3) - 1, "2026:01:02 03:04:05", nullptr, fuzz::on_reply, 0, 0, start, start, end,
                     end);
    });
    fuzz::require(finished == fuzz::exists(output), "there is a panorama just when the export finished");
    fuzz::require_as_written(job, inputs);
    std::filesystem::remove(output);
    return 0;
}
