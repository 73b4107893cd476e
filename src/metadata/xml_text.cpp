#include "metadata/xml_text.h"

#include <cstdint>

namespace {

constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD

// Bytes of a character in UTF-8 by its first one; 0 for a byte that begins none.
size_t character_size(uint8_t first) {
    if (first < 0x80) {
        return 1;
    }
    if (first < 0xC0 || first > 0xF7) {
        return 0;
    }
    return first < 0xE0 ? 2 : (first < 0xF0 ? 3 : 4);
}

// XML 1.0, production 2.
bool is_allowed(uint32_t character) {
    return character == 0x9 || character == 0xA || character == 0xD || (character >= 0x20 && character <= 0xD7FF) ||
           (character >= 0xE000 && character <= 0xFFFD) || (character >= 0x10000 && character <= 0x10FFFF);
}

// Bytes of the character that begins there when XML allows it, else 0.
size_t allowed_size(const std::string& text, size_t at) {
    constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};  // longer forms than needed are not UTF-8
    const auto first = static_cast<uint8_t>(text[at]);
    const size_t size = character_size(first);
    if (size == 0 || size > text.size() - at) {
        return 0;
    }
    uint32_t character = size == 1 ? first : first & (0xFFU >> (size + 1));
    for (size_t i = 1; i < size; ++i) {
        const auto next = static_cast<uint8_t>(text[at + i]);
        if (next >> 6 != 2) {
            return 0;
        }
        character = character << 6 | (next & 0x3FU);
    }
    return character >= kLeast[size] && is_allowed(character) ? size : 0;
}

std::string escaped(const std::string& character) {
    if (character == "<") {
        return "&lt;";
    }
    if (character == ">") {
        return "&gt;";
    }
    return character == "&" ? "&amp;" : character;
}

}  // namespace

std::string escape_xml(const std::string& text) {
    std::string result;
    for (size_t at = 0; at < text.size();) {
        const size_t size = allowed_size(text, at);
        result += size == 0 ? kReplacement : escaped(text.substr(at, size));
        at += size == 0 ? 1 : size;
    }
    return result;
}
