// The time of a shot, as EXIF, XMP and movies write it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct CaptureTime {
    int year = 0;
    int month = 0;
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::string fraction;  // decimals of the second; empty: none
    std::string offset;    // from UTC ("+09:00"); empty: not told
};

// Reads "2026:01:02 03:04:05", as EXIF has it, or "2026-01-02T03:04:05", each also with decimals and an offset
// ("+09:00" or "Z") behind it. None for any other text, and for a date that no calendar has.
std::optional<CaptureTime> parse_capture_time(const std::string& text);

// Of a number of seconds since 1970 in UTC. None beyond the year 9999.
std::optional<CaptureTime> capture_time_of(int64_t unix_seconds);

// "2026:01:02 03:04:05"; EXIF keeps decimals and offset elsewhere.
std::string exif_text(const CaptureTime& time);
// "2026-01-02T03:04:05.25+09:00"
std::string iso_text(const CaptureTime& time);
// Seconds since 1970 in UTC. Where no offset is told, the time counts as UTC: so cameras set their movies' clocks.
int64_t unix_seconds(const CaptureTime& time);

// A date out of a spherical text (ISO 8601, or seconds since 1970) as EXIF has it; any other text as it is.
std::string exif_date_of(const std::string& text);
