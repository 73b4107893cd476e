// A whole export of two small files. An input holds both, and how they are exported:
//
//   byte 0    bit 0: the first is a movie; bit 1: the second is; bit 2: the panorama has the other kind's name
//   byte 1    bits 0 and 1: whose sound; bit 2: from a little after the beginning; bit 3: to a little later
//   byte 2-5  the first file's length, big-endian
//   then      the first file, and the second one
#include <algorithm>

#include "replies.h"

namespace {

using test_support::Bytes;

constexpr size_t kHead = 6;

struct Job {
    uint8_t kinds;
    uint8_t options;
    Bytes files[2];

    bool is_movie(int input) const { return (kinds >> input & 1) != 0; }
};

Job job_of(const uint8_t* data, size_t size) {
    const Bytes input = fuzz::bytes_of(data, size);
    const size_t rest = size - kHead;
    const size_t first = kHead + std::min<size_t>(rest, test_support::read_big_endian(input, 2, 4));
    return {data[0], data[1], {test_support::slice(input, kHead, first), test_support::slice(input, first, size)}};
}

std::string output_of(const Job& job) {
    const bool other = (job.kinds >> 2 & 1) != 0;
    const bool movie = job.is_movie(0) || job.is_movie(1);
    return fuzz::path_of(movie != other ? "panorama.mov" : "panorama.jpg");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kHead) {
        return 0;
    }
    const Job job = job_of(data, size);
    std::string inputs[2];
    for (int i = 0; i < 2; ++i) {
        inputs[i] = fuzz::path_of(std::string("lens") + (i == 0 ? "1" : "2") + (job.is_movie(i) ? ".mov" : ".jpg"));
        fuzz::write_input(inputs[i], job.files[i].data(), job.files[i].size());
    }
    const std::string output = output_of(job);
    const int no = CORRECT_NONE;
    const float start = (job.options >> 2 & 1) != 0 ? 0.04f : 0.0f;
    const float end = (job.options >> 3 & 1) != 0 ? 0.05f : 100.0f;
    const bool finished = fuzz::finishes([&] {
        NQ360_export(inputs[0].c_str(), inputs[1].c_str(), output.c_str(), nullptr, 64, 32, 90, no, no, no, 3, no, no,
                     (job.options & 3) - 1, "2026:01:02 03:04:05", nullptr, fuzz::on_reply, 0, 0, start, start, end,
                     end);
    });
    fuzz::require(finished == fuzz::exists(output), "there is a panorama just when the export finished");
    for (int i = 0; i < 2; ++i) {
        fuzz::require(fuzz::content_of(inputs[i]) == job.files[i], "the inputs are as they were");
    }
    std::filesystem::remove(output);
    return 0;
}
