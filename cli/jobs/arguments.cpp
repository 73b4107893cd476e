#include "jobs/arguments.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <vector>

namespace {

constexpr double kMostSeconds = 1e6;  // far longer than any movie

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

double parse_between(const std::string& text, double least, double most, const char* expected) {
    const double value = parse_finite(text, expected);
    if (value < least || value > most) {
        throw std::invalid_argument(std::string("expected ") + expected);
    }
    return value;
}

double parse_factor(const std::string& text) {
    return text == "-" ? 1 : parse_between(text, 0, 16, "factors of 0 to 16, or - for none");
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

Gains parse_gains(const std::string& text) {
    std::vector<std::string> parts = split(text, ',');
    if (parts.size() == 1) {
        parts.resize(3, text);
    }
    if (parts.size() != 3) {
        throw std::invalid_argument("expected a factor, or three Y,U,V, such as 1.2 or 1.2,1,-");
    }
    return {parse_factor(parts[0]), parse_factor(parts[1]), parse_factor(parts[2])};
}

double parse_degrees(const std::string& text) {
    return parse_finite(text, "degrees");
}

double parse_look(const std::string& text) {
    return parse_between(text, -360, 360, "degrees, -360 to 360");
}

std::optional<double> parse_feather(const std::string& text) {
    return parse_between(text, 0, 5.5, "degrees, 0 to 5.5");
}

std::optional<int> parse_quality(const std::string& text) {
    int quality = 0;
    if (!read_whole(text, &quality) || quality < 1 || quality > 100) {
        throw std::invalid_argument("expected 1 to 100");
    }
    return quality;
}

std::optional<int> parse_jobs(const std::string& text) {
    int jobs = 0;
    if (!read_whole(text, &jobs) || jobs < 1 || jobs > 256) {
        throw std::invalid_argument("expected 1 to 256");
    }
    return jobs;
}

Share parse_share(const std::string& text) {
    constexpr int kMost = 100000;  // that the library takes
    const size_t slash = text.find('/');
    Share share;
    if (slash == std::string::npos || !read_whole(text.substr(0, slash), &share.number) ||
        !read_whole(text.substr(slash + 1), &share.count) || share.number < 1 || share.number > share.count ||
        share.count > kMost) {
        throw std::invalid_argument("expected a part's number and how many there are, such as 2/7");
    }
    return share;
}

long long parse_bit_rate(const std::string& text) {
    constexpr double kMost = 288e6;  // what the encoder takes
    double unit = 1;
    if (!text.empty() && (text.back() == 'M' || text.back() == 'k')) {
        unit = text.back() == 'M' ? 1e6 : 1e3;
    }
    double number = 0;
    const bool is_number = read_whole(unit == 1 ? text : text.substr(0, text.size() - 1), &number);
    if (!is_number || !(number * unit >= 1 && number * unit <= kMost)) {
        throw std::invalid_argument("expected bits per second up to 288M, such as 40M or 8000k");
    }
    return static_cast<long long>(number * unit);
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
    return offset(correction[0]) + "," + offset(correction[1]) + "," + offset(correction[2]);
}

std::string gains_text(const Gains& gains) {
    return number_text(gains[0]) + "," + number_text(gains[1]) + "," + number_text(gains[2]);
}

std::string number_text(double number) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.6g", number);
    return text;
}
