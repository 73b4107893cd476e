#include "metadata/capture_time.h"

#include <ctime>

#include <gtest/gtest.h>

namespace {

std::string as_iso(const std::string& text) {
    const std::optional<CaptureTime> time = parse_capture_time(text);
    return time ? iso_text(*time) : "none";
}

int64_t as_seconds(const std::string& text) {
    const std::optional<CaptureTime> time = parse_capture_time(text);
    return time ? unix_seconds(*time) : -1;
}

}  // namespace

TEST(CaptureTime, ReadsTheFormsOfExifAndXmp) {
    EXPECT_EQ(as_iso("2026:01:02 03:04:05"), "2026-01-02T03:04:05");
    EXPECT_EQ(as_iso("2026-01-02 03:04:05"), "2026-01-02T03:04:05");
    EXPECT_EQ(as_iso("2026:01:02 03:04:05.250+09:00"), "2026-01-02T03:04:05.250+09:00");
    EXPECT_EQ(as_iso("2026-01-02T03:04:05-03:30"), "2026-01-02T03:04:05-03:30");
    EXPECT_EQ(as_iso("2026-01-02T03:04:05Z"), "2026-01-02T03:04:05+00:00");
    EXPECT_EQ(exif_text(*parse_capture_time("2026-01-02T03:04:05.25Z")), "2026:01:02 03:04:05");
}

TEST(CaptureTime, RefusesWhatNoCalendarHas) {
    for (const char* text : {"",
                             "2026:01:02",
                             "0000:00:00 00:00:00",
                             "    :  :     :  :  ",
                             "2026:00:02 03:04:05",
                             "2026:13:02 03:04:05",
                             "2026:02:29 03:04:05",
                             "2026:04:31 03:04:05",
                             "2026:01:00 03:04:05",
                             "2026:01:02 24:04:05",
                             "2026:01:02 03:60:05",
                             "2026:01:02 03:04:60",
                             "2026:01:02 03:04:05 ",
                             "2026:01:02 03:04:05.",
                             "2026:01:02 03:04:05+9:00",
                             "2026:01:02 03:04:05+15:00",
                             "2026:01:02 03:04:05.1234567890",
                             "2026:01:02T03:04:05",
                             "2026:01:02 03:04:0x",
                             "<a&b>"}) {
        EXPECT_EQ(as_iso(text), "none") << text;
    }
    EXPECT_EQ(as_iso("2024:02:29 23:59:59"), "2024-02-29T23:59:59");
    EXPECT_EQ(as_iso("2000:12:31 00:00:00"), "2000-12-31T00:00:00");
}

TEST(CaptureTime, CountsSecondsSince1970) {
    EXPECT_EQ(as_seconds("1970:01:01 00:00:00"), 0);
    EXPECT_EQ(as_seconds("2026:01:02 03:04:05"), 1767323045);
    EXPECT_EQ(as_seconds("2026:01:02 03:04:05+09:00"), 1767323045 - 9 * 3600);
    EXPECT_EQ(as_seconds("2026:01:02 03:04:05-03:30"), 1767323045 + 3 * 3600 + 1800);
    EXPECT_EQ(as_seconds("1904:01:01 00:00:00"), -2082844800);
}

// Every day and some of its seconds, against the C library.
TEST(CaptureTime, AgreesWithTheSystemsCalendar) {
    for (int64_t seconds = 0; seconds < int64_t{200} * 366 * 86400; seconds += 86399) {
        const std::time_t instant = seconds;
        std::tm parts = {};
        gmtime_r(&instant, &parts);
        char text[32];
        std::strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &parts);
        const std::optional<CaptureTime> time = capture_time_of(seconds);
        ASSERT_TRUE(time);
        ASSERT_EQ(exif_text(*time), text);
        ASSERT_EQ(unix_seconds(*time), seconds);
    }
}

TEST(CaptureTime, LiesBetween1970And9999) {
    EXPECT_EQ(exif_text(*capture_time_of(253402300799)), "9999:12:31 23:59:59");
    EXPECT_FALSE(capture_time_of(253402300800));
    EXPECT_FALSE(capture_time_of(-1));
    EXPECT_FALSE(capture_time_of(INT64_MAX));
}

TEST(CaptureTime, TellsADateOfASphericalTextAsExifDoes) {
    EXPECT_EQ(exif_date_of("2026-01-02T03:04:05.25+09:00"), "2026:01:02 03:04:05");
    EXPECT_EQ(exif_date_of("1767323045"), "2026:01:02 03:04:05");
    EXPECT_EQ(exif_date_of("0"), "1970:01:01 00:00:00");
    for (const char* text : {"2026:01:02 03:04:05", "", "yesterday", "999999999999", "99999999999999999999", "-5"}) {
        EXPECT_EQ(exif_date_of(text), text);
    }
}
