#include "base/thrown_text.h"

#include <new>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

namespace {

template <typename Thrown>
std::string text_of(const Thrown& thrown) {
    try {
        throw thrown;
    } catch (...) {
        return thrown_text();
    }
}

}  // namespace

TEST(ThrownText, IsTheThrownText) {
    EXPECT_EQ(text_of(static_cast<const char*>("Can't open file x")), "Can't open file x");
    EXPECT_EQ(text_of(std::runtime_error("a reason")), "a reason");
    EXPECT_EQ(text_of(std::bad_alloc()), "std::bad_alloc");
    EXPECT_EQ(text_of(std::string("not an exception")), "an exception without a text");
    EXPECT_EQ(text_of(7), "an exception without a text");
}

TEST(ThrownText, OutlivesTheThrowingObject) {
    std::string text;
    try {
        const std::string local = "a text that goes with its function";
        throw std::runtime_error(local);
    } catch (...) {
        text = thrown_text();
    }
    EXPECT_EQ(text, "a text that goes with its function");
}

// JSON allows no control characters inside a text, and these texts go into replies as they are.
TEST(ThrownText, ControlCharactersBecomeBlanks) {
    EXPECT_EQ(text_of(std::runtime_error("a\nb\tc\x01"
                                         "d\x1F"
                                         "e f\r\n")),
              "a b c d e f  ");
    EXPECT_EQ(text_of(std::runtime_error("\xC3\xA4 \x7F")), "\xC3\xA4 \x7F");
}

TEST(ThrownText, TextOfOpenCvIsOneLine) {
    try {
        cv::Mat(2, 2, CV_8UC1).rowRange(1, 5);
        FAIL() << "nothing was thrown";
    } catch (const cv::Exception& exception) {
        ASSERT_NE(std::string(exception.what()).find('\n'), std::string::npos);
        EXPECT_EQ(thrown_text().find('\n'), std::string::npos);
        EXPECT_NE(thrown_text().find("Assertion failed"), std::string::npos);
    }
}
