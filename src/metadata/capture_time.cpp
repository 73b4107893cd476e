#include "metadata/capture_time.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr int kSecondsPerDay = 86400;
constexpr int64_t kLastSecond = 253402300799;  // of the year 9999

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

bool all_digits(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), is_digit);
}

// Whether the text has this form: 'd' stands for a digit, anything else for itself.
bool has_form(const std::string& text, const char* form) {
    return std::equal(
        text.begin(), text.end(), form, form + std::char_traits<char>::length(form),
        [](char character, char wanted) { return wanted == 'd' ? is_digit(character) : character == wanted; });
}

int number(const std::string& text, size_t at, size_t size) {
    return std::stoi(text.substr(at, size));
}

// Days since 1970-01-01 in the Gregorian calendar, by years that begin in March, so that a leap day is their last.
int64_t days_of(int year, int month, int day) {
    const int64_t march_year = month > 2 ? year : year - 1;
    const int64_t era = march_year / 400;
    const int64_t year_of_era = march_year % 400;
    const int64_t day_of_year = (153 * ((month + 9) % 12) + 2) / 5 + day - 1;
    return era * 146097 + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year - 719468;
}

int days_in_month(int year, int month) {
    return static_cast<int>(month == 12 ? 31 : days_of(year, month + 1, 1) - days_of(year, month, 1));
}

bool is_valid(const CaptureTime& time) {
    return time.year >= 1 && time.month >= 1 && time.month <= 12 && time.day >= 1 &&
           time.day <= days_in_month(time.year, time.month) && time.hour <= 23 && time.minute <= 59 &&
           time.second <= 59;
}

bool parse_offset(const std::string& text, std::string* offset) {
    if (text == "Z") {
        *offset = "+00:00";
    } else if ((has_form(text, "+dd:dd") || has_form(text, "-dd:dd")) && number(text, 1, 2) <= 14 &&
               number(text, 4, 2) <= 59) {
        *offset = text;
    } else {
        return text.empty();
    }
    return true;
}

// What stands behind the seconds.
bool parse_rest(const std::string& text, CaptureTime* time) {
    size_t end = 0;
    if (!text.empty() && text[0] == '.') {
        end = std::min(text.find_first_not_of("0123456789", 1), text.size());
        time->fraction = text.substr(1, end - 1);
        if (time->fraction.empty() || time->fraction.size() > 9) {
            return false;
        }
    }
    return parse_offset(text.substr(end), &time->offset);
}

// Formats a date and a time of day that lie within four and two digits.
std::string formatted(const char* format, const CaptureTime& time) {
    char text[80];
    snprintf(text, sizeof text, format, time.year, time.month, time.day, time.hour, time.minute, time.second);
    return text;
}

}  // namespace

std::optional<CaptureTime> parse_capture_time(const std::string& text) {
    constexpr size_t kPlainSize = 19;
    const std::string plain = text.substr(0, kPlainSize);
    if (!has_form(plain, "dddd:dd:dd dd:dd:dd") && !has_form(plain, "dddd-dd-ddTdd:dd:dd") &&
        !has_form(plain, "dddd-dd-dd dd:dd:dd")) {
        return std::nullopt;
    }
    CaptureTime time = {number(plain, 0, 4),
                        number(plain, 5, 2),
                        number(plain, 8, 2),
                        number(plain, 11, 2),
                        number(plain, 14, 2),
                        number(plain, 17, 2),
                        "",
                        ""};
    if (!is_valid(time) || !parse_rest(text.substr(kPlainSize), &time)) {
        return std::nullopt;
    }
    return time;
}

std::optional<CaptureTime> capture_time_of(int64_t unix_seconds) {
    if (unix_seconds < 0 || unix_seconds > kLastSecond) {
        return std::nullopt;
    }
    const int64_t days = unix_seconds / kSecondsPerDay;
    const int rest = static_cast<int>(unix_seconds % kSecondsPerDay);
    CaptureTime time = {
        static_cast<int>(1970 + days / 366), 1, 1, rest / 3600, rest / 60 % 60, rest % 60, "", "+00:00"};
    while (days_of(time.year + 1, 1, 1) <= days) {
        ++time.year;
    }
    while (time.month < 12 && days_of(time.year, time.month + 1, 1) <= days) {
        ++time.month;
    }
    time.day = static_cast<int>(days - days_of(time.year, time.month, 1)) + 1;
    return time;
}

std::string exif_text(const CaptureTime& time) {
    return formatted("%04d:%02d:%02d %02d:%02d:%02d", time);
}

std::string iso_text(const CaptureTime& time) {
    const std::string fraction = time.fraction.empty() ? "" : "." + time.fraction;
    return formatted("%04d-%02d-%02dT%02d:%02d:%02d", time) + fraction + time.offset;
}

int64_t unix_seconds(const CaptureTime& time) {
    int64_t seconds =
        days_of(time.year, time.month, time.day) * kSecondsPerDay + time.hour * 3600 + time.minute * 60 + time.second;
    if (!time.offset.empty()) {
        const int offset = number(time.offset, 1, 2) * 3600 + number(time.offset, 4, 2) * 60;
        seconds -= time.offset[0] == '-' ? -offset : offset;
    }
    return seconds;
}

std::string exif_date_of(const std::string& text) {
    constexpr size_t kMostDigits = 12;
    const std::optional<CaptureTime> time =
        all_digits(text) && text.size() <= kMostDigits ? capture_time_of(std::stoll(text)) : parse_capture_time(text);
    return time ? exif_text(*time) : text;
}
