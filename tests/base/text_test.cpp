#include "base/text.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

std::string extension_of(const std::string& path) {
    std::vector<char> out(path.size() + 1, '?');
    get_extension(path.c_str(), out.data());
    return out.data();
}

std::string escaped(std::string text) {
    replace_string(text);
    return text;
}

}  // namespace

TEST(Text, ExtensionBeginsAtTheLastDot) {
    EXPECT_EQ(extension_of("a.b.mov"), ".mov");
    EXPECT_EQ(extension_of("clip.final.MOV"), ".MOV");
    EXPECT_EQ(extension_of("a.jpeg"), ".jpeg");
    EXPECT_EQ(extension_of("ends."), ".");
    EXPECT_EQ(extension_of("folder.d/name"), ".d/name");
}

TEST(Text, NameWithoutADotHasAnEmptyExtension) {
    EXPECT_EQ(extension_of("name"), "");
    EXPECT_EQ(extension_of(""), "");
    char out[1] = {'?'};
    get_extension(nullptr, out);
    EXPECT_EQ(out[0], '\0');
}

TEST(Text, ExtensionsOfAnyLengthFit) {
    const std::string long_extension = "." + std::string(5000, 'x');
    EXPECT_EQ(extension_of("a" + long_extension), long_extension);
    EXPECT_FALSE(isJpeg(long_extension.c_str()));
    EXPECT_FALSE(isMovie(long_extension.c_str()));
}

TEST(Text, StrToLowerLowersInPlace) {
    char text[] = "A.Mp4 \xC3\x84Z";
    EXPECT_EQ(StrToLower(text), text);
    EXPECT_STREQ(text, "a.mp4 \xC3\x84z");
}

TEST(Text, JpegAndMovieExtensions) {
    for (const char* extension : {".jpg", ".jpeg", ".JPG", ".Jpeg"}) {
        EXPECT_TRUE(isJpeg(extension)) << extension;
        EXPECT_FALSE(isMovie(extension)) << extension;
    }
    for (const char* extension : {".mov", ".mp4", ".MOV", ".Mp4"}) {
        EXPECT_TRUE(isMovie(extension)) << extension;
        EXPECT_FALSE(isJpeg(extension)) << extension;
    }
    for (const char* other : {".jpe", ".m4v", ".qt", "jpg", "photo.jpg", "clip.mov", ".jpg ", ".", ""}) {
        EXPECT_FALSE(isJpeg(other)) << other;
        EXPECT_FALSE(isMovie(other)) << other;
    }
    EXPECT_FALSE(isJpeg(nullptr));
    EXPECT_FALSE(isMovie(nullptr));
}

TEST(Text, BackslashesAreDoubledBeforeQuotesAreEscaped) {
    EXPECT_EQ(escaped(R"(a\b"c)"), R"(a\\b\"c)");
    EXPECT_EQ(escaped(R"(")"), R"(\")");
    EXPECT_EQ(escaped(R"(\\)"), R"(\\\\)");
    EXPECT_EQ(escaped(R"("")"), R"(\"\")");
    EXPECT_EQ(escaped(R"(\")"), R"(\\\")");
    EXPECT_EQ(escaped(""), "");
}

TEST(Text, NothingElseIsEscaped) {
    const std::string plain = "/a b%s/\t\n\x01\x7F\xC3\xA4\xFF'";
    EXPECT_EQ(escaped(plain), plain);
}
