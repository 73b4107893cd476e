#include "request_reader.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeadEnd = "\r\n\r\n";

bool equal_but_for_case(std::string_view one, std::string_view other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

std::string_view trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(" \t");
    const size_t end = text.find_last_not_of(" \t");
    return begin == std::string_view::npos ? std::string_view() : text.substr(begin, end + 1 - begin);
}

bool is_visible(std::string_view line) {
    return std::all_of(line.begin(), line.end(), [](unsigned char c) { return c > 0x20 && c != 0x7F; });
}

// METHOD TARGET VERSION
bool is_request_line(std::string_view line) {
    const size_t first = line.find(' ');
    const size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last || line[first + 1] != '/') {
        return false;
    }
    const std::string_view version = line.substr(last + 1);
    return is_visible(line.substr(first + 1, last - first - 1)) && (version == "HTTP/1.1" || version == "HTTP/1.0");
}

// Ranges of bytes as browsers ask for them. What the server's parser would go astray in is not handed to it.
bool is_range(std::string_view value) {
    constexpr std::string_view kUnit = "bytes=";
    return value.size() <= RequestReader::kMostRange && value.substr(0, kUnit.size()) == kUnit &&
           value.find_first_not_of("0123456789-, ", kUnit.size()) == std::string_view::npos;
}

// What the headers say of the body: its size, or the status that refuses it.
struct Body {
    std::optional<size_t> size;
    int status = 0;
};

void read_header(std::string_view line, Body* body) {
    const size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos || !is_visible(line.substr(0, colon)) ||
        line.find('\0') != std::string_view::npos) {
        body->status = 400;
        return;
    }
    const std::string_view name = line.substr(0, colon);
    const std::string_view value = trimmed(line.substr(colon + 1));
    if (equal_but_for_case(name, "Transfer-Encoding") || equal_but_for_case(name, "Content-Encoding")) {
        body->status = 501;  // a body is small and comes as it is
    } else if (equal_but_for_case(name, "Expect")) {
        body->status = 417;
    } else if (equal_but_for_case(name, "Range") && !is_range(value)) {
        body->status = 400;
    } else if (equal_but_for_case(name, "Content-Length")) {
        size_t size = 0;
        const auto end = std::from_chars(value.data(), value.data() + value.size(), size);
        const bool is_number = !value.empty() && end.ec == std::errc() && end.ptr == value.data() + value.size();
        if (body->size || !is_number) {
            body->status = 400;
        } else if (size > RequestReader::kMostBody) {
            body->status = 413;
        }
        body->size = size;
    }
}

}  // namespace

void RequestReader::add(std::string_view bytes) {
    if (status_ != 0) {
        return;
    }
    text_ += bytes;
    if (whole_size_ == 0) {
        read_head();
    }
    if (status_ == 0 && whole_size_ > 0 && text_.size() >= whole_size_) {
        text_.resize(whole_size_);
        status_ = 200;
    }
}

void RequestReader::read_head() {
    const size_t line_end = text_.find(kLineEnd);
    if (std::min(line_end, text_.size()) > kMostLine) {
        status_ = 414;
        return;
    }
    const size_t end = text_.find(kHeadEnd);
    if (std::min(end, text_.size()) > kMostHead) {
        status_ = 431;
        return;
    }
    if (end == std::string::npos) {
        return;
    }
    std::string_view head = std::string_view(text_).substr(0, end + kLineEnd.size());
    if (!is_request_line(head.substr(0, line_end))) {
        status_ = 400;
        return;
    }
    Body body;
    head.remove_prefix(line_end + kLineEnd.size());
    while (!head.empty() && body.status == 0) {
        const size_t next = head.find(kLineEnd);
        read_header(head.substr(0, next), &body);
        head.remove_prefix(next + kLineEnd.size());
    }
    status_ = body.status;
    whole_size_ = end + kHeadEnd.size() + body.size.value_or(0);
}
