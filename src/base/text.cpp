#include "base/text.h"

#include <cctype>
#include <cstring>

namespace {

std::string lowered(const char* text) {
    std::string copy = text ? text : "";
    for (char& c : copy) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return copy;
}

void replace_all(std::string& s, const char* from, const char* to) {
    const size_t from_length = std::strlen(from);
    const size_t to_length = std::strlen(to);
    for (size_t at = s.find(from); at != std::string::npos; at = s.find(from, at + to_length)) {
        s.replace(at, from_length, to);
    }
}

}  // namespace

void get_extension(const char* path, char* out) {
    const char* dot = path ? std::strrchr(path, '.') : nullptr;
    std::strcpy(out, dot ? dot : "");
}

char* StrToLower(char* s) {
    for (char* c = s; *c; ++c) {
        *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
    }
    return s;
}

bool isJpeg(const char* ext) {
    const std::string lower = lowered(ext);
    return lower == ".jpeg" || lower == ".jpg";
}

bool isMovie(const char* ext) {
    const std::string lower = lowered(ext);
    return lower == ".mov" || lower == ".mp4";
}

void replace_string(std::string& s) {
    replace_all(s, "\\", "\\\\");
    replace_all(s, "\"", "\\\"");
}
