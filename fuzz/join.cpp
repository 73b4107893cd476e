// The joining of a movie's shares.
#include "replies.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string share = fuzz::path_of("input.part");
    static const std::string movie = fuzz::path_of("joined.mov");
    const test_support::Bytes input = fuzz::bytes_of(data, size);
    fuzz::write_input(share, data, size);
    const char* const files[] = {share.c_str()};
    NQ360_JOIN_OPTIONS options;
    NQ360_join_options_init(&options);
    options.files = files;
    options.file_count = 1;
    options.output = movie.c_str();
    options.reply = fuzz::on_reply_with;
    options.log = fuzz::on_line;
    const bool finished = fuzz::finishes([&] { NQ360_join(&options); });
    fuzz::require(finished == fuzz::exists(movie), "there is a movie just when the joining finished");
    fuzz::require(fuzz::content_of(share) == input, "the share is as it was");
    std::filesystem::remove(movie);
    return 0;
}
