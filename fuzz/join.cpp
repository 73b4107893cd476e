// The joining of a movie's shares.
extern "C" {
#include <libavutil/crc.h>
}

#include "replies.h"

// Else nothing but the reading of it would be tried.
static void set_crc(test_support::Bytes* share) {
    const size_t size = share->size() - 4;
    const uint32_t crc = av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), 0, share->data(), size);
    test_support::overwrite(*share, size, test_support::be32(crc));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string share = fuzz::path_of("input.part");
    static const std::string movie = fuzz::path_of("joined.mov");
    test_support::Bytes input = fuzz::bytes_of(data, size);
    if (size > 4 && data[size - 1] % 2 == 0) {
        set_crc(&input);
    }
    fuzz::write_input(share, input.data(), input.size());
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
