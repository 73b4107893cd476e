// The analysis of one file, for the targets of both kinds.
#pragma once

#include "replies.h"

namespace fuzz {

// Thumbnails of several widths, the input's own and unfit ones among them.
inline void analyze(const std::string& path, const uint8_t* data, size_t size) {
    static const std::string thumbnail = path_of("thumbnail.jpg");
    constexpr int kWidths[] = {32, 0, 16, 1, -1};
    const int width = kWidths[size % std::size(kWidths)];
    const test_support::Bytes input = bytes_of(data, size);
    write_input(path, data, size);
    const bool finished = finishes([&] { NQ360_analyze_image(path.c_str(), thumbnail.c_str(), width, 1, on_reply); });
    require(finished == exists(thumbnail), "there is a thumbnail just when the analysis finished");
    std::filesystem::remove(thumbnail);

    NQ360_ANALYZE_OPTIONS options;
    NQ360_analyze_options_init(&options);
    options.input = path.c_str();
    options.thumbnail = size % 2 != 0 ? thumbnail.c_str() : nullptr;
    options.thumbnail_width = 16;
    options.thumbnail_always = 1;
    options.quick = size % 3 == 0 ? 1 : 0;
    options.reply = on_reply_with;
    options.log = on_line;
    const bool told = finishes([&] { NQ360_analyze_with(&options); });
    require(exists(thumbnail) == (told && options.thumbnail), "there is a thumbnail just when it was asked for");
    require(content_of(path) == input, "the input is as it was");
    std::filesystem::remove(thumbnail);
}

}  // namespace fuzz
