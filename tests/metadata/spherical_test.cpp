#include "metadata/spherical.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::EndsWith;
using testing::HasSubstr;

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

struct Recognised {
    int result;
    std::optional<std::string> software;
    std::optional<std::string> date;
};

std::optional<std::string> taken(char* text) {
    const Text owned(text);
    return text ? std::optional<std::string>(text) : std::nullopt;
}

// Whatever the two pointers held before.
char before[] = "before";

Recognised recognise(std::string xmp) {
    char* software = before;
    char* date = before;
    const int result = isTALUMO360Viewer(xmp.data(), &software, &date);
    return {result, taken(software), taken(date)};
}

std::string metadata(bool picture, int width, int height, const char* date) {
    return Text(TALUMO360ViewerMetadata(picture, width, height, date)).get();
}

std::string element(const std::string& name, const std::string& value) {
    return "<" + name + ">" + value + "</" + name + ">";
}

const std::string kSoftware = "TALUMO360Viewer osx.1.0.0";
const std::string kMovieSoftware = "GSpherical:StitchingSoftware";
const std::string kPictureSoftware = "GPano:StitchingSoftware";

int count(const std::string& text, const std::string& part) {
    int found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++found;
    }
    return found;
}

}  // namespace

TEST(Recognition, MovieElementHasTheFullValue) {
    const Recognised r = recognise("<x>" + element(kMovieSoftware, kSoftware));
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.software, kSoftware);
    EXPECT_EQ(r.date, std::nullopt);
}

TEST(Recognition, PictureElementLosesItsLastCharacter) {
    const Recognised r = recognise("<x>" + element(kPictureSoftware, kSoftware));
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.software, "TALUMO360Viewer osx.1.0.");
}

TEST(Recognition, PictureElementWithTheBareNameIsAnother) {
    EXPECT_EQ(recognise(element(kPictureSoftware, "TALUMO360Viewer")).result, 1);
    EXPECT_EQ(recognise(element(kPictureSoftware, "TALUMO360Viewer ")).result, 0);
    EXPECT_EQ(recognise(element(kMovieSoftware, "TALUMO360Viewer")).result, 0);
}

TEST(Recognition, OtherSoftware) {
    for (const char* name : {"Hugin", "TALUMO360Viewe", "talumo360viewer", " TALUMO360Viewer", ""}) {
        const Recognised r = recognise(element(kMovieSoftware, name));
        EXPECT_EQ(r.result, 1) << name;
        EXPECT_EQ(r.software, name);
    }
}

TEST(Recognition, DateWithoutSoftwareIsSetAllTheSame) {
    const Recognised r = recognise(element("GSpherical:Timestamp", "2019:03:04 05:06:07"));
    EXPECT_EQ(r.result, -1);
    EXPECT_EQ(r.software, std::nullopt);
    EXPECT_EQ(r.date, "2019:03:04 05:06:07");
    EXPECT_EQ(recognise(element("GPano:FirstPhotoDate", "today")).date, "today");
}

TEST(Recognition, LastSoftwareDecides) {
    const std::string ours = element(kMovieSoftware, kSoftware);
    const std::string other = element(kMovieSoftware, "other");
    EXPECT_EQ(recognise(ours + other).result, 1);
    EXPECT_EQ(recognise(ours + other).software, "other");
    EXPECT_EQ(recognise(other + ours).result, 0);
    EXPECT_EQ(recognise(ours + element(kPictureSoftware, "another")).software, "anothe");
}

TEST(Recognition, LastDateDecides) {
    EXPECT_EQ(recognise(element("GPano:FirstPhotoDate", "first") + element("GSpherical:Timestamp", "last")).date,
              "last");
    EXPECT_EQ(recognise(element("GSpherical:Timestamp", "first") + element("GPano:FirstPhotoDate", "last")).date,
              "last");
}

TEST(Recognition, NothingToLookAt) {
    char* software = before;
    char* date = before;
    EXPECT_EQ(isTALUMO360Viewer(nullptr, &software, &date), -1);
    EXPECT_EQ(software, nullptr);
    EXPECT_EQ(date, nullptr);
    for (const char* xmp : {"", ">", ">>>>", "text", "a>", "a>b>c", "<a/>"}) {
        const Recognised r = recognise(xmp);
        EXPECT_EQ(r.result, -1) << xmp;
        EXPECT_EQ(r.software, std::nullopt);
    }
}

TEST(Recognition, FirstPieceIsSkipped) {
    EXPECT_EQ(recognise("TALUMO360Viewer</" + kMovieSoftware + ">").result, -1);
    EXPECT_EQ(recognise(">>TALUMO360Viewer</" + kMovieSoftware + ">").result, -1);
    EXPECT_EQ(recognise(">x>TALUMO360Viewer</" + kMovieSoftware + ">").result, 0);
}

TEST(Recognition, OnlyClosingTagsCount) {
    EXPECT_EQ(recognise("<x " + kPictureSoftware + "=\"TALUMO360Viewer 1\"/>").result, -1);
    // A text cut off in the tag is found by the tag's beginning.
    EXPECT_EQ(recognise("<a>TALUMO360Viewer</GSpherical:StitchingSoftwar").result, -1);
    EXPECT_EQ(recognise("<a>TALUMO360Viewer</GSpherical:StitchingSoftware").result, 0);
}

TEST(Recognition, BothTagsInOnePiece) {
    const Recognised r = recognise("<a>one</GSpherical:StitchingSoftware</GPano:StitchingSoftware");
    EXPECT_EQ(r.software, "one</GSpherical:StitchingSoftwar");
    EXPECT_EQ(r.result, 1);
}

TEST(Recognition, EmptyPictureElementStaysEmpty) {
    const Recognised r = recognise(element(kPictureSoftware, ""));
    EXPECT_EQ(r.software, "");
    EXPECT_EQ(r.result, 1);
    EXPECT_EQ(recognise(element(kPictureSoftware, "x")).software, "");
}

TEST(Recognition, EmptyDate) {
    EXPECT_EQ(recognise(element("GPano:FirstPhotoDate", "")).date, "");
}

TEST(Recognition, LongTextIsSearchedToItsEnd) {
    std::string xmp;
    for (int i = 0; i < 20000; ++i) {
        xmp += element(kPictureSoftware, "software") + element("GSpherical:Timestamp", "date");
    }
    const Recognised r = recognise(xmp + element(kMovieSoftware, kSoftware));
    EXPECT_EQ(r.result, 0);
    EXPECT_EQ(r.date, "date");
}

TEST(Metadata, PictureTextAsItStands) {
    EXPECT_EQ(metadata(true, 7680, 3840, "2019:03:04 05:06:07"),
              "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
              "<x:xmpmeta xmlns:x=\"adobe:ns:meta\">\n"
              "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
              "<rdf:Description rdf:about=\"\" xmlns:GPano=\"http://ns.google.com/photos/1.0/panorama/\">\n"
              "<GPano:UsePanoramaViewer>True</GPano:UsePanoramaViewer>\n"
              "<GPano:StitchingSoftware>TALUMO360Viewer osx.1.0.0</GPano:StitchingSoftware>\n"
              "<GPano:ProjectionType>equirectangular</GPano:ProjectionType>\n"
              "<GPano:PoseHeadingDegrees>0.0</GPano:PoseHeadingDegrees>\n"
              "<GPano:CroppedAreaLeftPixels>0</GPano:CroppedAreaLeftPixels>\n"
              "<GPano:CroppedAreaTopPixels>0</GPano:CroppedAreaTopPixels>\n"
              "<GPano:CroppedAreaImageWidthPixels>7680</GPano:CroppedAreaImageWidthPixels>\n"
              "<GPano:CroppedAreaImageHeightPixels>3840</GPano:CroppedAreaImageHeightPixels>\n"
              "<GPano:FullPanoWidthPixels>7680</GPano:FullPanoWidthPixels>\n"
              "<GPano:FullPanoHeightPixels>3840</GPano:FullPanoHeightPixels>\n"
              "<GPano:FirstPhotoDate>2019:03:04 05:06:07</GPano:FirstPhotoDate>\n"
              "<GPano:LastPhotoDate>2019:03:04 05:06:07</GPano:LastPhotoDate>\n"
              "</rdf:Description>\n"
              "</rdf:RDF>\n"
              "</x:xmpmeta>\n"
              "<?xpacket end=\"r\"?>");
}

TEST(Metadata, PictureTextCarriesSizesAndDateTwice) {
    const std::string text = metadata(true, 7680, 3840, "DATE");
    EXPECT_EQ(count(text, "7680"), 2);
    EXPECT_EQ(count(text, "3840"), 2);
    EXPECT_THAT(text, HasSubstr(element("GPano:FirstPhotoDate", "DATE")));
    EXPECT_THAT(text, HasSubstr(element("GPano:LastPhotoDate", "DATE")));
}

TEST(Metadata, MovieTextAsItStands) {
    EXPECT_EQ(metadata(false, 7680, 3840, "2019:03:04 05:06:07"),
              "<?xml version=\"1.0\"?>\n"
              "<rdf:SphericalVideo xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\" "
              "xmlns:GSpherical=\"http://ns.google.com/videos/1.0/spherical/\">\n"
              "<GSpherical:Spherical>true</GSpherical:Spherical>\n"
              "<GSpherical:Stitched>true</GSpherical:Stitched>\n"
              "<GSpherical:StitchingSoftware>TALUMO360Viewer osx.1.0.0</GSpherical:StitchingSoftware>\n"
              "<GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>\n"
              "<GSpherical:Timestamp>2019:03:04 05:06:07</GSpherical:Timestamp>\n"
              "</rdf:SphericalVideo>");
}

TEST(Metadata, NullDateIsEmpty) {
    EXPECT_THAT(metadata(true, 2, 1, nullptr), HasSubstr(element("GPano:FirstPhotoDate", "")));
    EXPECT_THAT(metadata(false, 2, 1, nullptr), HasSubstr(element("GSpherical:Timestamp", "")));
}

TEST(Metadata, DateIsNeitherEscapedNorAPattern) {
    EXPECT_THAT(metadata(true, 2, 1, "100%d & <b>"), HasSubstr(element("GPano:FirstPhotoDate", "100%d & <b>")));
}

TEST(Metadata, LongDateIsCutAtTheBound) {
    const std::string date(20000, 'd');
    for (const bool picture : {true, false}) {
        const std::string text = metadata(picture, 2, 1, date.c_str());
        EXPECT_EQ(text.size(), 10239u);
        EXPECT_THAT(text, EndsWith("ddd"));
    }
}

TEST(Metadata, OwnTextsAreRecognised) {
    const Recognised picture = recognise(metadata(true, 7680, 3840, "2019:03:04"));
    EXPECT_EQ(picture.result, 0);
    EXPECT_EQ(picture.software, "TALUMO360Viewer osx.1.0.");
    EXPECT_EQ(picture.date, "2019:03:04");
    const Recognised movie = recognise(metadata(false, 7680, 3840, "2019:03:04"));
    EXPECT_EQ(movie.result, 0);
    EXPECT_EQ(movie.software, kSoftware);
    EXPECT_EQ(movie.date, "2019:03:04");
}

TEST(StandardMetadata, PacketNamesTheWholeSphereAndBothDates) {
    const std::string packet = gpano_packet(7680, 3840, "2026-01-02T03:04:05");
    EXPECT_THAT(packet, HasSubstr("<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">"));
    for (const auto& [name, value] :
         std::vector<std::pair<std::string, std::string>>{{"UsePanoramaViewer", "True"},
                                                          {"StitchingSoftware", kSoftware},
                                                          {"ProjectionType", "equirectangular"},
                                                          {"CroppedAreaLeftPixels", "0"},
                                                          {"CroppedAreaTopPixels", "0"},
                                                          {"CroppedAreaImageWidthPixels", "7680"},
                                                          {"CroppedAreaImageHeightPixels", "3840"},
                                                          {"FullPanoWidthPixels", "7680"},
                                                          {"FullPanoHeightPixels", "3840"},
                                                          {"SourcePhotosCount", "2"},
                                                          {"FirstPhotoDate", "2026-01-02T03:04:05"},
                                                          {"LastPhotoDate", "2026-01-02T03:04:05"}}) {
        EXPECT_EQ(count(packet, element("GPano:" + name, value)), 1) << name;
    }
    EXPECT_EQ(count(packet, "Pose"), 0);
}

TEST(StandardMetadata, DocumentNamesTheWholeSphereAndItsTime) {
    const std::string document = spherical_video_document(3840, 1920, "1767323045");
    for (const auto& [name, value] :
         std::vector<std::pair<std::string, std::string>>{{"Spherical", "true"},
                                                          {"Stitched", "true"},
                                                          {"StitchingSoftware", kSoftware},
                                                          {"ProjectionType", "equirectangular"},
                                                          {"SourceCount", "2"},
                                                          {"Timestamp", "1767323045"},
                                                          {"FullPanoWidthPixels", "3840"},
                                                          {"FullPanoHeightPixels", "1920"},
                                                          {"CroppedAreaImageWidthPixels", "3840"},
                                                          {"CroppedAreaImageHeightPixels", "1920"},
                                                          {"CroppedAreaLeftPixels", "0"},
                                                          {"CroppedAreaTopPixels", "0"}}) {
        EXPECT_EQ(count(document, element("GSpherical:" + name, value)), 1) << name;
    }
}

TEST(StandardMetadata, NoDateIsNoElement) {
    EXPECT_EQ(count(gpano_packet(64, 32, ""), "Date"), 0);
    EXPECT_EQ(count(spherical_video_document(64, 32, ""), "Timestamp"), 0);
}

TEST(StandardMetadata, DateIsEscaped) {
    EXPECT_THAT(gpano_packet(64, 32, "<a&b>"), HasSubstr(element("GPano:FirstPhotoDate", "&lt;a&amp;b&gt;")));
    EXPECT_THAT(spherical_video_document(64, 32, "</GSpherical:StitchingSoftware>"),
                HasSubstr(element("GSpherical:Timestamp", "&lt;/GSpherical:StitchingSoftware&gt;")));
}

TEST(StandardMetadata, IsRecognised) {
    const Recognised picture = recognise(gpano_packet(64, 32, "2026-01-02T03:04:05"));
    EXPECT_EQ(picture.result, 0);
    EXPECT_EQ(picture.date, "2026-01-02T03:04:05");
    const Recognised movie = recognise(spherical_video_document(64, 32, "1767323045"));
    EXPECT_EQ(movie.result, 0);
    EXPECT_EQ(movie.software, kSoftware);
    EXPECT_EQ(movie.date, "1767323045");
    EXPECT_EQ(recognise(gpano_packet(64, 32, "</GPano:StitchingSoftware")).result, 0);
}
