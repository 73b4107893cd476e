#include "metadata/spherical.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>
#include <utility>

#include "metadata/atoms.h"
#include "metadata/xml_text.h"

namespace {

constexpr char kSoftware[] = "TALUMO360Viewer osx.1.0.0";
constexpr char kSoftwareName[] = "TALUMO360Viewer";

constexpr size_t kTextSize = 10240;

#define RDF_NAMESPACE "http://www.w3.org/1999/02/22-rdf-syntax-ns#"

// Slots: software, width, height, width, height, date, date. The first line begins with U+FEFF in UTF-8.
constexpr char kPictureText[] =
    "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
    "<x:xmpmeta xmlns:x=\"adobe:ns:meta\">\n"
    "<rdf:RDF xmlns:rdf=\"" RDF_NAMESPACE
    "\">\n"
    "<rdf:Description rdf:about=\"\" xmlns:GPano=\"http://ns.google.com/photos/1.0/panorama/\">\n"
    "<GPano:UsePanoramaViewer>True</GPano:UsePanoramaViewer>\n"
    "<GPano:StitchingSoftware>%s</GPano:StitchingSoftware>\n"
    "<GPano:ProjectionType>equirectangular</GPano:ProjectionType>\n"
    "<GPano:PoseHeadingDegrees>0.0</GPano:PoseHeadingDegrees>\n"
    "<GPano:CroppedAreaLeftPixels>0</GPano:CroppedAreaLeftPixels>\n"
    "<GPano:CroppedAreaTopPixels>0</GPano:CroppedAreaTopPixels>\n"
    "<GPano:CroppedAreaImageWidthPixels>%d</GPano:CroppedAreaImageWidthPixels>\n"
    "<GPano:CroppedAreaImageHeightPixels>%d</GPano:CroppedAreaImageHeightPixels>\n"
    "<GPano:FullPanoWidthPixels>%d</GPano:FullPanoWidthPixels>\n"
    "<GPano:FullPanoHeightPixels>%d</GPano:FullPanoHeightPixels>\n"
    "<GPano:FirstPhotoDate>%s</GPano:FirstPhotoDate>\n"
    "<GPano:LastPhotoDate>%s</GPano:LastPhotoDate>\n"
    "</rdf:Description>\n"
    "</rdf:RDF>\n"
    "</x:xmpmeta>\n"
    "<?xpacket end=\"r\"?>";

// Slots: software, date.
constexpr char kMovieText[] =
    "<?xml version=\"1.0\"?>\n"
    "<rdf:SphericalVideo xmlns:rdf=\"" RDF_NAMESPACE
    "\" xmlns:GSpherical=\"http://ns.google.com/videos/1.0/spherical/\">\n"
    "<GSpherical:Spherical>true</GSpherical:Spherical>\n"
    "<GSpherical:Stitched>true</GSpherical:Stitched>\n"
    "<GSpherical:StitchingSoftware>%s</GSpherical:StitchingSoftware>\n"
    "<GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>\n"
    "<GSpherical:Timestamp>%s</GSpherical:Timestamp>\n"
    "</rdf:SphericalVideo>";

// Callers release these texts with free, so they come from malloc.
char* allocate(size_t size) {
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the callers own the text
    auto* text = static_cast<char*>(std::malloc(size));
    if (!text) {
        throw std::bad_alloc();
    }
    return text;
}

// Whether the piece has the closing tag. If so, `value` is replaced by a copy of what stands before it, without
// its last `drop` characters.
bool take_value(const char* piece, const char* closing_tag, size_t drop, char** value) {
    const char* tag = std::strstr(piece, closing_tag);
    if (!tag) {
        return false;
    }
    const auto length = static_cast<size_t>(tag - piece);
    const size_t kept = length > drop ? length - drop : 0;
    char* copy = allocate(kept + 1);
    std::memcpy(copy, piece, kept);
    copy[kept] = '\0';
    std::free(*value);  // NOLINT(cppcoreguidelines-owning-memory): the callers own the text
    *value = copy;
    return true;
}

// One line for each element that has a text.
std::string elements(const std::string& prefix,
                     std::initializer_list<std::pair<const char*, std::string>> names_and_texts) {
    std::string lines;
    for (const auto& [name, text] : names_and_texts) {
        if (!text.empty()) {
            const std::string tag = prefix + ":" + name;
            lines.append("<").append(tag).append(">").append(escape_xml(text)).append("</").append(tag).append(">\n");
        }
    }
    return lines;
}

}  // namespace

int isTALUMO360Viewer(char* xmp, char** software, char** date) {
    *software = nullptr;
    *date = nullptr;
    char* rest = nullptr;
    // The piece before the first ">" is skipped.
    if (!xmp || !strtok_r(xmp, ">", &rest)) {
        return -1;
    }
    while (const char* piece = strtok_r(nullptr, ">", &rest)) {
        take_value(piece, "</GSpherical:StitchingSoftware", 0, software);
        // One character less than the movie's; deliberate.
        take_value(piece, "</GPano:StitchingSoftware", 1, software);
        take_value(piece, "</GSpherical:Timestamp", 0, date);
        take_value(piece, "</GPano:FirstPhotoDate", 0, date);
    }
    if (!*software) {
        return -1;
    }
    return std::strncmp(*software, kSoftwareName, sizeof kSoftwareName - 1) == 0 ? 0 : 1;
}

char* TALUMO360ViewerMetadata(bool picture, int width, int height, const char* date) {
    const char* day = date ? date : "";
    char* text = allocate(kTextSize);
    if (picture) {
        snprintf(text, kTextSize, kPictureText, kSoftware, width, height, width, height, day, day);
    } else {
        snprintf(text, kTextSize, kMovieText, kSoftware, day);
    }
    return text;
}

std::string gpano_packet(int width, int height, const std::string& date) {
    const std::string columns = std::to_string(width);
    const std::string rows = std::to_string(height);
    return "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
           "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
           "<rdf:RDF xmlns:rdf=\"" RDF_NAMESPACE
           "\">\n"
           "<rdf:Description rdf:about=\"\" xmlns:GPano=\"http://ns.google.com/photos/1.0/panorama/\">\n" +
           elements("GPano", {{"UsePanoramaViewer", "True"},
                              {"StitchingSoftware", kSoftware},
                              {"ProjectionType", "equirectangular"},
                              {"CroppedAreaLeftPixels", "0"},
                              {"CroppedAreaTopPixels", "0"},
                              {"CroppedAreaImageWidthPixels", columns},
                              {"CroppedAreaImageHeightPixels", rows},
                              {"FullPanoWidthPixels", columns},
                              {"FullPanoHeightPixels", rows},
                              {"SourcePhotosCount", "2"},
                              {"FirstPhotoDate", date},
                              {"LastPhotoDate", date}}) +
           "</rdf:Description>\n"
           "</rdf:RDF>\n"
           "</x:xmpmeta>\n"
           "<?xpacket end=\"r\"?>";
}

std::string spherical_video_document(int width, int height, const std::string& timestamp) {
    const std::string columns = std::to_string(width);
    const std::string rows = std::to_string(height);
    return "<?xml version=\"1.0\"?>\n"
           "<rdf:SphericalVideo xmlns:rdf=\"" RDF_NAMESPACE
           "\" xmlns:GSpherical=\"http://ns.google.com/videos/1.0/spherical/\">\n" +
           elements("GSpherical", {{"Spherical", "true"},
                                   {"Stitched", "true"},
                                   {"StitchingSoftware", kSoftware},
                                   {"ProjectionType", "equirectangular"},
                                   {"SourceCount", "2"},
                                   {"Timestamp", timestamp},
                                   {"FullPanoWidthPixels", columns},
                                   {"FullPanoHeightPixels", rows},
                                   {"CroppedAreaImageWidthPixels", columns},
                                   {"CroppedAreaImageHeightPixels", rows},
                                   {"CroppedAreaLeftPixels", "0"},
                                   {"CroppedAreaTopPixels", "0"}}) +
           "</rdf:SphericalVideo>";
}

std::string spherical_video_boxes() {
    const std::string version_and_flags(4, '\0');
    const auto box = [](const char* type, const std::string& payload) {
        return atom_bytes({type, payload, {}, "", false});
    };
    const std::string mono(1, '\0');
    const std::string no_turns(3 * 4, '\0');   // yaw, pitch, roll
    const std::string no_bounds(4 * 4, '\0');  // what is cut off at the top, bottom, left and right
    return box("st3d", version_and_flags + mono) +
           box("sv3d",
               box("svhd", version_and_flags + kSoftware + '\0') +
                   box("proj", box("prhd", version_and_flags + no_turns) + box("equi", version_and_flags + no_bounds)));
}
