#include "jobs/arguments.h"

#include <charconv>
#include <cmath>
#include <vector>

namespace {

constexpr double kMostSeconds = 1e6;  // far longer than any movie, and exact enough as a float

template <typename T>
bool read_whole(const std::string& text, T* value) {
    const char* begin = text.data() + (text.size() > 1 && text[0] == '+' ? 1 : 0);
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(begin, end, *value);
    return result.ec == std::errc() && result.ptr == end && begin != end;
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

int parse_offset(const std::string& text) {
    int offset = 0;
    if (text == "-") {
        return CORRECT_NONE;
    }
    if (!read_whole(text, &offset) || std::abs(offset) > 255) {
        throw std::invalid_argument("expected Y,U,V, each -255 to 255 or - to leave it alone (such as 6,-,-2)");
    }
    return offset;
}

double parse_finite(const std::string& text, const char* expected) {
    double value = 0;
    if (!read_whole(text, &value) || !std::isfinite(value)) {
        throw std::invalid_argument(std::string("expected ") + expected + ", not \"" + text + "\"");
    }
    return value;
}

}  // namespace

std::optional<Size> parse_size(const std::string& text) {
    const size_t at = text.find_first_of("xX");
    Size size;
    if (at == std::string::npos || !read_whole(text.substr(0, at), &size.width) ||
        !read_whole(text.substr(at + 1), &size.height) || size.width < 1 || size.height < 1) {
        throw std::invalid_argument("expected WIDTHxHEIGHT in pixels, such as 3840x1920");
    }
    return size;
}

std::optional<double> parse_seconds(const std::string& text) {
    constexpr const char* kExpected = "seconds or h:m:s, such as 90 or 1:30.5";
    const std::vector<std::string> parts = split(text, ':');
    double seconds = 0;
    for (const std::string& part : parts) {
        const double value = parse_finite(part, kExpected);
        const bool is_first = &part == &parts.front();
        const bool is_last = &part == &parts.back();
        const bool in_range = value >= 0 && (is_first || value < 60) && (is_last || value == std::floor(value));
        if (!in_range || parts.size() > 3) {
            throw std::invalid_argument(std::string("expected ") + kExpected);
        }
        seconds = seconds * 60 + value;
    }
    if (seconds > kMostSeconds) {
        throw std::invalid_argument("no movie is that long");
    }
    return seconds;
}

Correction parse_correction(const std::string& text) {
    const std::vector<std::string> parts = split(text, ',');
    if (parts.size() != 3) {
        throw std::invalid_argument("expected three numbers Y,U,V (- leaves one alone), such as 6,-,-2");
    }
    return {parse_offset(parts[0]), parse_offset(parts[1]), parse_offset(parts[2])};
}

int parse_whole_degrees(const std::string& text) {
    int degrees = 0;
    if (!read_whole(text, &degrees)) {
        throw std::invalid_argument("expected a whole number of degrees, not \"" + text + "\"");
    }
    return degrees;
}

float parse_degrees(const std::string& text) {
    return static_cast<float>(parse_finite(text, "degrees"));
}

int parse_sound(const std::string& text) {
    if (text == "1" || text == "2") {
        return text == "1" ? 0 : 1;
    }
    if (text != "none") {
        throw std::invalid_argument("expected 1, 2 or none");
    }
    return -1;
}

std::string correction_text(const Correction& correction) {
    const auto offset = [](int value) { return value == CORRECT_NONE ? "-" : std::to_string(value); };
    return offset(correction.y) + "," + offset(correction.u) + "," + offset(correction.v);
}
