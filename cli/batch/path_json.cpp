#include "batch/path_json.h"

#include <cctype>
#include <cstdio>

namespace {

bool is_utf8(const std::string& text) {
    try {
        static_cast<void>(Json(text).dump());
        return true;
    } catch (const Json::type_error&) {
        return false;
    }
}

std::string escaped(const std::string& path) {
    std::string text;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7F && c != '%') {
            text += c;
        } else {
            char code[4];
            std::snprintf(code, sizeof(code), "%%%02X", byte);
            text += code;
        }
    }
    return text;
}

std::string unescaped(const std::string& text) {
    std::string path;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool is_code = text[at] == '%' && at + 2 < text.size() && std::isxdigit(text[at + 1] & 0xFF) &&
                             std::isxdigit(text[at + 2] & 0xFF);
        if (is_code) {
            path += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
            at += 2;
        } else {
            path += text[at];
        }
    }
    return path;
}

}  // namespace

Json path_json(const std::string& path) {
    return is_utf8(path) ? Json(path) : Json{{"percent", escaped(path)}};
}

std::string path_of(const Json& json) {
    return json.is_object() ? unescaped(json.at("percent").get<std::string>()) : json.get<std::string>();
}
