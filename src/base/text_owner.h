// Owner of a text from malloc: replies, and what the metadata functions hand out.
#pragma once

#include <cstdlib>
#include <memory>

struct TextDeleter {
    void operator()(char* text) const {
        std::free(text);  // NOLINT(cppcoreguidelines-owning-memory): this is the owner's end
    }
};

using TextPtr = std::unique_ptr<char, TextDeleter>;
