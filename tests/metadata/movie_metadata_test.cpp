#include "metadata/movie_metadata.h"

#include <gtest/gtest.h>

#include "support/bytes.h"
#include "support/command.h"
#include "support/temp_dir.h"

using namespace test_support;

namespace {

constexpr char kPlace[] = "+35.6586+139.7454+040.000/";
const std::string kPlaceType = "\xA9xyz";

Bytes short_header(uint32_t created) {
    return atom("mvhd", zeros(4) + be32(created) + be32(7) + zeros(88));
}

Bytes long_header(uint64_t created) {
    return atom("mvhd", Bytes{1, 0, 0, 0} + be64(created) + be64(7) + zeros(92));
}

Bytes user_text(const std::string& content) {
    return atom("udta", atom(kPlaceType, be16(content.size()) + be16(0x15C7) + text(content)));
}

Bytes keys(const std::string& name, const std::string& content, uint32_t number = 2) {
    return atom("hdlr", zeros(24)) +
           atom("keys",
                zeros(4) + be32(2) + atom("mdta", text("com.apple.quicktime.make")) + atom("mdta", text(name))) +
           atom("ilst", atom(to_string(be32(number)), atom("data", be32(1) + be32(0) + text(content))));
}

template <typename Read>
auto of_movie(const Bytes& moov_content, Read read) {
    const TempDir dir;
    _mov movie(dir.file("lens1.mov", atom("mdat", {}) + atom("moov", moov_content)).c_str(), false);
    return read(&movie);
}

int64_t created(const Bytes& moov_content) {
    return of_movie(moov_content, movie_creation_time);
}

std::string place(const Bytes& moov_content) {
    return of_movie(moov_content, movie_location);
}

Bytes track(const std::string& handler, const Bytes& descriptions) {
    return atom("trak", {atom("tkhd", zeros(84)),
                         atom("mdia", {atom("mdhd", zeros(24)), atom("hdlr", zeros(8) + text(handler) + zeros(12)),
                                       atom("minf", atom("stbl", atom("stsd", descriptions)))})});
}

Bytes description(const Bytes& boxes) {
    return zeros(4) + be32(1) + atom("avc1", zeros(78) + boxes);
}

}  // namespace

TEST(MovieMetadata, ReadsTheCreationTimeOfEitherHeader) {
    EXPECT_EQ(created(short_header(0xFEDCBA98)), 0xFEDCBA98);
    EXPECT_EQ(created(long_header(0x1234567890)), 0x1234567890);
    EXPECT_EQ(created(long_header(~uint64_t{0})), 0);
    EXPECT_EQ(created(short_header(0)), 0);
    EXPECT_EQ(created(atom("mvhd", zeros(7))), 0);
    EXPECT_EQ(created(atom("mvhd", {})), 0);
    EXPECT_EQ(created({}), 0);
}

TEST(MovieMetadata, ReadsThePlaceFromUserData) {
    EXPECT_EQ(place(user_text(kPlace)), kPlace);
    // The text's own size counts, and what the atom has of it.
    EXPECT_EQ(place(atom("udta", atom(kPlaceType, be16(8) + be16(0) + text("+10+020/garbage")))), "+10+020/");
    EXPECT_EQ(place(atom("udta", atom(kPlaceType, be16(999) + be16(0) + text("+10+020/")))), "+10+020/");
}

TEST(MovieMetadata, ReadsThePlaceFromKeysWithAndWithoutAVersion) {
    const Bytes list = keys("com.apple.quicktime.location.ISO6709", kPlace);
    EXPECT_EQ(place(atom("meta", list)), kPlace);
    EXPECT_EQ(place(atom("meta", zeros(4) + list)), kPlace);
    EXPECT_EQ(place(atom("meta", keys("com.apple.quicktime.location.name", kPlace))), "");
    EXPECT_EQ(place(atom("meta", keys("com.apple.quicktime.location.ISO6709", kPlace, 1))), "");
    EXPECT_EQ(place(atom("meta", zeros(4) + list) + user_text("+10+020/")), "+10+020/");
}

TEST(MovieMetadata, APlaceIsTwoNumbersWithSigns) {
    for (const char* good : {"+10+020/", "-10.5-020.25/", "+1000+02000+5CRSWGS_84/"}) {
        EXPECT_EQ(place(user_text(good)), good);
    }
    for (const std::string& bad : {std::string(""), std::string("10+020/"), std::string("+10"), std::string("+10+<b>"),
                                   std::string("+1\0+02", 6), "+1+" + std::string(100, '0')}) {
        EXPECT_EQ(place(user_text(bad)), "") << bad;
    }
    EXPECT_EQ(place(atom("udta", atom(kPlaceType, zeros(3)))), "");
}

TEST(MovieMetadata, EveryPrefixAndDamagedByteOfALensMovieIsSafe) {
    const Bytes whole =
        long_header(7) + user_text("nowhere") + atom("meta", keys("com.apple.quicktime.location.ISO6709", kPlace));
    for (size_t at = 0; at < whole.size(); ++at) {
        EXPECT_LE(place(slice(whole, 0, at)).size(), 100u);
        for (const uint8_t value : {0, 1, 0x7F, 0xFF}) {
            Bytes damaged = whole;
            damaged[at] = value;
            created(damaged);
            EXPECT_LE(place(damaged).size(), 100u);
        }
    }
}

TEST(MovieMetadata, SetsTheTimesOfTheMovieAndItsTracks) {
    Atom moov = parse_index(to_string(short_header(1) + track("vide", description({})) + track("soun", {})));
    set_creation_time(0x12345678, &moov);
    const std::string times = "\x12\x34\x56\x78\x12\x34\x56\x78";
    EXPECT_EQ(find_child(&moov, "mvhd")->payload.substr(0, 13), std::string(4, '\0') + times + '\0');
    for (Atom& each : moov.children) {
        if (each.type == "trak") {
            EXPECT_EQ(find_child(&each, "tkhd")->payload.substr(4, 8), times);
            EXPECT_EQ(find_descendant(&each, {"mdia", "mdhd"})->payload.substr(4, 8), times);
        }
    }
}

TEST(MovieMetadata, ATimeWithoutRoomIsLeftAsItIs) {
    Atom wide = parse_index(to_string(long_header(1)));
    set_creation_time(0x123456789, &wide);
    EXPECT_EQ(wide.children[0].payload.substr(4, 16), to_string(be64(0x123456789) + be64(0x123456789)));
    for (const Bytes& header : {short_header(1), atom("mvhd", zeros(11))}) {
        Atom moov = parse_index(to_string(header));
        set_creation_time(0x123456789, &moov);
        EXPECT_EQ(atom_bytes(moov), to_string(atom("moov", header)));
    }
}

TEST(MovieMetadata, AddsUserTextsBeforeTheEndOfUserData) {
    Atom moov = parse_index(to_string(atom("udta", atom("name", text("x")) + zeros(4))));
    add_user_text("\xA9mak", "Maker", &moov);
    add_user_text("\xA9mod", "", &moov);
    EXPECT_EQ(
        atom_bytes(moov),
        to_string(atom("moov", atom("udta", atom("name", text("x")) +
                                                atom("\xA9mak", be16(5) + be16(0x55C4) + text("Maker")) + zeros(4)))));
    Atom without = parse_index("");
    add_user_text("\xA9mak", "M", &without);
    EXPECT_EQ(atom_bytes(without),
              to_string(atom("moov", atom("udta", atom("\xA9mak", be16(1) + be16(0x55C4) + text("M"))))));
}

TEST(MovieMetadata, AddsTheSphereToTheVideoTrackAlone) {
    const Bytes sound = track("soun", description({}));
    const Bytes config = atom("avcC", zeros(3));
    Atom moov = parse_index(to_string(sound + track("vide", description(config + zeros(4)))));
    EXPECT_TRUE(add_spherical_video("document", &moov));
    EXPECT_EQ(atom_bytes(moov.children[0]), to_string(sound));
    const Bytes boxes =
        atom("st3d", zeros(5)) + atom("sv3d", {atom("svhd", zeros(4) + text_with_zero("TALUMO360Viewer osx.1.0.0")),
                                               atom("proj", {atom("prhd", zeros(16)), atom("equi", zeros(20))})});
    Atom* entry = find_descendant(&moov.children[1], {"mdia", "minf", "stbl", "stsd", "avc1"});
    EXPECT_EQ(entry->payload, to_string(zeros(78) + config + boxes + zeros(4)));
    const Atom& uuid = moov.children[1].children.back();
    EXPECT_EQ(uuid.type, "uuid");
    EXPECT_EQ(uuid.payload.substr(0, 4), "\xFF\xCC\x82\x63");
    EXPECT_EQ(uuid.payload.substr(16), "document");
}

TEST(MovieMetadata, NoSphereWithoutAVideoTrackThatIsDescribed) {
    for (const Bytes& tracks : {Bytes{}, track("soun", description({})), track("vide", {}),
                                track("vide", zeros(8) + atom("avc1", zeros(77))), atom("trak", {})}) {
        Atom moov = parse_index(to_string(tracks));
        EXPECT_FALSE(add_spherical_video("document", &moov));
        EXPECT_EQ(atom_bytes(moov), to_string(atom("moov", tracks)));
    }
}
