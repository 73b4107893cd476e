// The extraction of a movie's sound.
#include "replies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string movie = fuzz::path_of("input.mov");
    static const std::string sound = fuzz::path_of("sound.wav");
    const test_support::Bytes input = fuzz::bytes_of(data, size);
    fuzz::write_input(movie, data, size);
    const bool finished =
        fuzz::finishes([&] { NQ360_get_audio(movie.c_str(), sound.c_str(), 0, nullptr, fuzz::on_reply); });
    fuzz::require(finished || !fuzz::exists(sound), "a failed extraction leaves no file");
    fuzz::require(fuzz::content_of(movie) == input, "the input is as it was");
    std::filesystem::remove(sound);
    return 0;
}
