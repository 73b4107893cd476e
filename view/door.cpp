#include "door.h"

#include <array>
#include <cerrno>
#include <stdexcept>

#include <sys/random.h>

namespace {

std::string random_key() {
    std::array<unsigned char, 16> bytes;
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the system gives no random numbers");
    }
    std::string key;
    for (const unsigned char byte : bytes) {
        key += "0123456789abcdef"[byte >> 4];
        key += "0123456789abcdef"[byte & 15];
    }
    return key;
}

// In a time that does not tell how much of it is right.
bool equal(const std::string& one, const std::string& other) {
    unsigned char difference = one.size() == other.size() ? 0 : 1;
    for (size_t i = 0; i < one.size() && i < other.size(); ++i) {
        difference |= static_cast<unsigned char>(one[i] ^ other[i]);
    }
    return difference == 0;
}

// The value of a cookie among "A=1; B=2".
std::string cookie_in(const std::string& cookies, const std::string& name) {
    const std::string wanted = name + "=";
    for (size_t at = 0; at < cookies.size();) {
        const size_t end = std::min(cookies.find(';', at), cookies.size());
        const size_t begin = std::min(cookies.find_first_not_of(' ', at), end);
        if (cookies.compare(begin, wanted.size(), wanted) == 0) {
            return cookies.substr(begin + wanted.size(), end - begin - wanted.size());
        }
        at = end + 1;
    }
    return "";
}

bool only_value_is(const httplib::Request& request, const char* header, const std::string& value) {
    return request.get_header_value_count(header) == 1 && request.get_header_value(header) == value;
}

}  // namespace

// Cookies are not kept apart by port, so their names are.
Door::Door(int port)
    : host_("127.0.0.1:" + std::to_string(port)), cookie_name_("nq360-" + std::to_string(port)), key_(random_key()) {}

Door::Answer Door::ask(const httplib::Request& request) const {
    if (!only_value_is(request, "Host", host_)) {
        return Answer::kRefused;  // a foreign name that was made to point here
    }
    if (request.has_header("Origin") && !only_value_is(request, "Origin", "http://" + host_)) {
        return Answer::kRefused;
    }
    const std::string site = request.get_header_value("Sec-Fetch-Site");
    if (!site.empty() && site != "same-origin" && site != "none") {
        return Answer::kRefused;
    }
    const bool enters = request.method == "GET" && request.path == "/" && request.get_param_value_count("key") == 1;
    if (enters && equal(request.get_param_value("key"), key_)) {
        return Answer::kWelcome;
    }
    return equal(cookie_in(request.get_header_value("Cookie"), cookie_name_), key_) ? Answer::kKnown : Answer::kRefused;
}

std::string Door::cookie() const {
    return cookie_name_ + "=" + key_ + "; Path=/; HttpOnly; SameSite=Strict";
}

std::string Door::address() const {
    return "http://" + host_ + "/?key=" + key_;
}
