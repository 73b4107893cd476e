#include "metadata/xml_text.h"

#include <gtest/gtest.h>

namespace {

constexpr char kReplaced[] = "\xEF\xBF\xBD";

}  // namespace

TEST(XmlText, EscapesMarkup) {
    EXPECT_EQ(escape_xml("<a&b>"), "&lt;a&amp;b&gt;");
    EXPECT_EQ(escape_xml("]]>"), "]]&gt;");
    EXPECT_EQ(escape_xml("2026:01:02 \"03\"\t'04'\r\n"), "2026:01:02 \"03\"\t'04'\r\n");
}

TEST(XmlText, LeavesCharactersOfEachLength) {
    for (const char* text : {"a~\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80",
                             "\xEF\xBF\xBD", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(escape_xml(text), text);
    }
}

TEST(XmlText, ReplacesWhatXmlDoesNotAllow) {
    EXPECT_EQ(escape_xml(std::string("a\0b\x1F", 4)), std::string("a") + kReplaced + "b" + kReplaced);
    for (const char* bytes : {"\xED\xA0\x80", "\xEF\xBF\xBE", "\xE0\x9F\xBF"}) {  // surrogate, U+FFFE, too long a form
        EXPECT_EQ(escape_xml(bytes), std::string(kReplaced) + kReplaced + kReplaced);
    }
    for (const char* bytes : {"\xC1\xBF", "\xC2", "\x80", "\xF4\x90\x80\x80", "\xF8", "\xFF", "\xE2\x82"}) {
        std::string expected;
        for (const char* byte = bytes; *byte; ++byte) {
            expected += kReplaced;
        }
        EXPECT_EQ(escape_xml(bytes), expected) << bytes;
    }
    EXPECT_EQ(escape_xml("\xC2<"), std::string(kReplaced) + "&lt;");
}
