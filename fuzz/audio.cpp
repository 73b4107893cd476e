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
    std::filesystem::remove(sound);

    static const std::string aac = fuzz::path_of("sound.mp4");
    NQ360_AUDIO_OPTIONS options;
    NQ360_audio_options_init(&options);
    options.movie = movie.c_str();
    options.output = aac.c_str();
    options.sound_codec = size % 2 != 0 ? NQ360_SOUND_AAC : NQ360_SOUND_PCM;
    options.reply = fuzz::on_reply_with;
    options.log = fuzz::on_line;
    const bool written = fuzz::finishes([&] { NQ360_get_audio_with(&options); });
    fuzz::require(written == fuzz::exists(aac), "there is a file just when the extraction finished");
    fuzz::require(fuzz::content_of(movie) == input, "the input is as it was");
    std::filesystem::remove(aac);
    return 0;
}
