#include "batch/path_json.h"

#include <gtest/gtest.h>

namespace {

TEST(PathJson, IsThePathWhereItIsUtf8) {
    EXPECT_EQ(path_json("card/50% caf\xC3\xA9.jpg").dump(), "\"card/50% caf\xC3\xA9.jpg\"");
}

TEST(PathJson, EscapesWhatIsNoUtf8) {
    EXPECT_EQ(path_json("a b\xFF%\n.jpg").dump(), R"({"percent":"a%20b%FF%25%0A.jpg"})");
}

TEST(PathJson, ComesBackAsItWas) {
    std::string every_byte;
    for (int byte = 1; byte < 256; ++byte) {
        every_byte += static_cast<char>(byte);
    }
    for (const std::string& path : {std::string("a%41.jpg"), std::string("\xFF%"), std::string("\xFF%4"), every_byte}) {
        EXPECT_EQ(path_of(Json::parse(path_json(path).dump())), path);
    }
}

TEST(PathJson, RefusesWhatIsNone) {
    EXPECT_THROW(path_of(Json::parse("[1]")), Json::exception);
    EXPECT_THROW(path_of(Json::parse("{}")), Json::exception);
    EXPECT_THROW(path_of(Json::parse(R"({"percent":3})")), Json::exception);
}

}  // namespace
