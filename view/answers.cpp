#include "answers.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <optional>

#include <unistd.h>

#include "terminal/descriptor.h"

namespace {

constexpr size_t kPiece = size_t{4} << 20;  // bytes
constexpr size_t kBlock = size_t{256} << 10;

struct ByteRange {
    size_t first;
    size_t last;
};

bool read_number(std::string_view text, size_t* number) {
    const auto end = std::from_chars(text.data(), text.data() + text.size(), *number);
    return !text.empty() && end.ec == std::errc() && end.ptr == text.data() + text.size();
}

bool is_bytes(const std::string& range) {
    return range.rfind("bytes=", 0) == 0 && range.find(',') == std::string::npos &&
           range.find('-') != std::string::npos;
}

// "bytes=A-B", "bytes=A-" or "bytes=-N" (RFC 9110, 14.1.2); nothing when the file has no such bytes.
std::optional<ByteRange> range_of(const std::string& text, size_t size) {
    const std::string_view range = std::string_view(text).substr(6);
    const size_t dash = range.find('-');
    size_t first = 0;
    size_t last = 0;
    const bool has_first = read_number(range.substr(0, dash), &first);
    const bool has_last = read_number(range.substr(dash + 1), &last);
    if (!has_first) {
        return dash == 0 && has_last && last > 0 && size > 0
                   ? std::optional(ByteRange{size - std::min(last, size), size - 1})
                   : std::nullopt;
    }
    if (first >= size || (has_last && last < first) || (!has_last && dash + 1 < range.size())) {
        return {};
    }
    return ByteRange{first, std::min(has_last ? last : first + kPiece - 1, size - 1)};
}

}  // namespace

void send_json(const Json& json, httplib::Response& response) {
    response.set_content(json_line(json), "application/json");
}

void send_refusal(int status, const std::string& why, httplib::Response& response) {
    response.status = status;
    send_json({{"error", why}}, response);
}

bool is_known_version(const httplib::Request& request, const std::string& version, httplib::Response& response) {
    const std::string tag = "\"" + version + "\"";
    response.set_header("ETag", tag);
    response.set_header("Cache-Control", "no-cache");
    if (request.get_header_value("If-None-Match") != tag) {
        return false;
    }
    response.status = 304;
    return true;
}

std::string parameter(const httplib::Request& request, const char* name) {
    if (request.get_param_value_count(name) != 1) {
        throw Refusal(400, std::string(name) + ": is to be given once");
    }
    return request.get_param_value(name);
}

Json body_of(const httplib::Request& request) {
    if (request.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
        throw Refusal(415, "the body is to be application/json");
    }
    Json body = Json::parse(request.body, nullptr, false);
    if (!body.is_object()) {
        throw Refusal(400, "the body is to be one JSON object");
    }
    return body;
}

void send_part(int descriptor, size_t size, const std::string& range, const std::string& type,
               const std::shared_ptr<void>& seat, httplib::Response& response) {
    ByteRange part = {0, size - 1};
    response.set_header("Accept-Ranges", "bytes");
    if (is_bytes(range)) {
        const auto asked = range_of(range, size);
        if (!asked) {
            response.set_header("Content-Range", "bytes */" + std::to_string(size));
            send_refusal(416, "the file has no such bytes", response);
            return;
        }
        part = *asked;
        response.status = 206;
        response.set_header("Content-Range", "bytes " + std::to_string(part.first) + "-" + std::to_string(part.last) +
                                                 "/" + std::to_string(size));
    }
    if (size == 0) {
        response.set_content("", type);
        return;
    }
    const auto file = std::make_shared<Descriptor>(dup(descriptor));
    const auto block = std::make_shared<std::string>();
    response.set_content_provider(
        part.last + 1 - part.first, type,
        [file, block, seat, first = part.first](size_t offset, size_t length, httplib::DataSink& sink) {
            block->resize(std::min(length, kBlock));
            const ssize_t count = pread(file->get(), block->data(), block->size(), static_cast<off_t>(first + offset));
            return count > 0 && sink.write(block->data(), static_cast<size_t>(count));
        });
}
