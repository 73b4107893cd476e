// Makes the corpus that the fuzz targets start from: seeds SAMPLE-TOOL CORPUS-FOLDER. The files that findings left
// there stay as they are.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "metadata/spherical.h"
#include "nq360.h"
#include "support/command.h"
#include "support/exif_blocks.h"
#include "support/temp_dir.h"

namespace {

using namespace test_support;
using Arguments = std::vector<std::string>;

constexpr uint8_t kSphericalUuid[] = {0xFF, 0xCC, 0x82, 0x63, 0xF8, 0x55, 0x4A, 0x93,
                                      0x88, 0x14, 0x58, 0x7A, 0x02, 0x52, 0x1F, 0xDD};

class Corpus {
  public:
    Corpus(std::string tool, std::string folder) : tool_(std::move(tool)), folder_(std::move(folder)) {}

    void put(const std::string& target, const std::string& name, const Bytes& bytes) const {
        std::filesystem::create_directories(folder_ + "/" + target);
        write_file(folder_ + "/" + target + "/" + name, bytes);
    }

    // A pair of the sample tool's files, the bytes of both.
    std::vector<Bytes> sampled(const std::string& kind, const std::string& extension, const Arguments& options) const {
        const TempDir dir;
        Arguments arguments = {tool_, kind, dir.file("1" + extension), dir.file("2" + extension), "--grain", "0"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        output_of(arguments);
        return {read_file(dir.file("1" + extension)), read_file(dir.file("2" + extension))};
    }

    // A file that the distribution's ffmpeg makes.
    static Bytes converted(const std::string& name, const Arguments& options) {
        const TempDir dir;
        Arguments arguments = {"ffmpeg", "-v", "error", "-nostdin", "-bitexact"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back("file:" + dir.file(name));
        output_of(arguments);
        return read_file(dir.file(name));
    }

  private:
    std::string tool_;
    std::string folder_;
};

std::string spherical_text(bool picture) {
    char* text = TALUMO360ViewerMetadata(picture, 64, 32, "2026:01:02 03:04:05");
    std::string copy = text;
    std::free(text);
    return copy;
}

// Every type of value, beside what the reader looks for.
Bytes block_of_all_types(MetadataBlock block) {
    const uint32_t fraction = block.put(be32(1) + be32(0));
    const Bytes make = block.entry_text(0x010F, "MERIDAN OPTICS CORP");
    block.set_start(block.put_directory(
        {make, entry_byte(1, 2), entry_short(0x0112, 6), entry(0x0112, kTypeShort, 3, be16(1)), entry_long(2, 7),
         entry(3, kTypeRational, 1, be32(fraction)), entry(4, 10, 1, be32(fraction)), entry(5, 8, 1, be16(0xFFFF)),
         entry(6, 9, 1, be32(0xFFFFFFFF)), entry(7, 6, 1, be32(0)), entry_short(0x4003, 1), entry_short(0x4034, 2)}));
    return block.bytes();
}

// A directory that leads back to itself.
Bytes block_of_a_circle() {
    MetadataBlock block = MetadataBlock::tiff();
    block.set_start(8);
    block.put_directory({entry_long(0x8769, 8), entry_short(0x3000, 129)});
    return block.bytes();
}

void put_blocks(const Corpus& corpus) {
    corpus.put("exif", "camera-picture", camera_block(MetadataBlock::tiff()));
    corpus.put("exif", "camera-movie", camera_block(MetadataBlock::maker()));
    corpus.put("exif", "all-types", block_of_all_types(MetadataBlock::tiff()));
    corpus.put("exif", "circle", block_of_a_circle());
    corpus.put("exif", "little-endian", Bytes{0x49, 0x49, 0x2A, 0x00} + zeros(8));
    corpus.put("exif", "little-endian-texts",
               Bytes{0x49, 0x49, 0x2A, 0x00, 8, 0, 0, 0, 2, 0, 0x0F, 1, 2, 0, 3, 0, 0, 0} + text({"HP\0\0", 4}) +
                   Bytes{0x10, 1, 2, 0, 6, 0, 0, 0, 34, 0, 0, 0} + text_with_zero("Model"));
}

void put_segments(const Corpus& corpus) {
    const Bytes exif = exif_segment(camera_block(MetadataBlock::tiff()));
    const Bytes xmp = xmp_segment(spherical_text(true));
    const Bytes other = jpeg_segment(kApp1, text("another"));
    corpus.put("jpeg", "exif-then-xmp", jpeg_start() + exif + xmp + jpeg_end());
    corpus.put("jpeg", "xmp-then-exif", jpeg_start() + jpeg_segment(kApp0, text("JFIF")) + xmp + exif + jpeg_end());
    corpus.put("jpeg", "three", jpeg_start() + xmp + exif + other + jpeg_end());
    corpus.put("jpeg", "none", jpeg_start() + jpeg_end());
    corpus.put("jpeg", "no-scan", jpeg_start() + exif);
    corpus.put("jpeg", "png", Bytes{0x89, 0x50, 0x4E, 0x47});
}

Bytes track(uint16_t number, const Bytes& rest) {
    return atom("trak", {atom("tkhd", zeros(34) + be16(number) + zeros(48)), rest});
}

void put_atoms(const Corpus& corpus) {
    const Bytes maker = atom("udta", atom("MKRI", camera_block(MetadataBlock::maker())));
    const Bytes uuid =
        atom("uuid", Bytes(std::begin(kSphericalUuid), std::end(kSphericalUuid)) + text(spherical_text(false)));
    const Bytes foreign = atom("uuid", zeros(16) + text("another"));
    const Bytes media = atom("mdat", text("samples"));
    const Bytes video = track(0, uuid);
    const Bytes sound = track(1, {});
    corpus.put("mov", "camera", atom("ftyp", text("qt  ")) + media + atom("moov", {video, maker}));
    corpus.put("mov", "sound-first", media + atom("moov", {sound, video}));
    corpus.put("mov", "two-sounds", media + atom("moov", {sound, sound, maker}));
    corpus.put("mov", "no-maker", media + atom("moov", {track(0, foreign), atom("udta", zeros(0))}));
    corpus.put("mov", "no-video", media + atom("moov", maker));
    corpus.put("mov", "large-sizes", atom64("mdat", text("samples")) + atom64("moov", track(0, {}) + maker));
    corpus.put("mov", "moov-first", atom("moov", {video, maker}) + media);
    corpus.put("mov", "size-0", be32(0) + text("wide") + atom("moov", {video}));
}

Bytes shot_block(ByteOrder order) {
    return ExifBuilder(order).block({exif_text(0x010F, "Maker"), exif_text(0x0132, "2026:01:02 03:04:06")},
                                    {exif_rationals(0x829A, {1, 250}),
                                     exif_short(0x8827, 100),
                                     exif_text(0x9003, "2026:01:02 03:04:05"),
                                     exif_text(0x9011, "+09:00"),
                                     exif_rationals(0x9204, {0xFFFFFFFF, 3}, 10),
                                     exif_text(0x9291, "25"),
                                     {0xA300, kTypeUndefined, 1, {3}}},
                                    {exif_text(1, "S"),
                                     exif_rationals(2, {35, 1, 39, 1, 3096, 100}),
                                     exif_text(3, "W"),
                                     exif_rationals(4, {139, 1, 44, 1, 4344, 100}),
                                     {5, kTypeByte, 1, {1}},
                                     exif_rationals(6, {81, 2}),
                                     exif_text(0x1D, "2026:01:02")});
}

// A movie of which everything is kept, and into which everything can be written.
Bytes kept_movie(const Bytes& offsets) {
    const Bytes header = zeros(4) + be32(0xE0000000) + zeros(92);
    const Bytes descriptions = atom("stsd", zeros(4) + be32(1) + atom("avc1", zeros(78) + atom("avcC", zeros(3))));
    const Bytes video =
        atom("trak", {atom("tkhd", header), atom("mdia", {atom("mdhd", header), atom("hdlr", zeros(8) + text("vide")),
                                                          atom("minf", atom("stbl", descriptions + offsets))})});
    const Bytes place = atom("\xA9xyz", be16(17) + be16(0x15C7) + text("+35.6586+139.7454"));
    const Bytes keys = atom("keys", zeros(4) + be32(1) + atom("mdta", text("com.apple.quicktime.location.ISO6709")));
    const Bytes list = atom("ilst", atom({"\0\0\0\1", 4}, atom("data", zeros(8) + text("+10+020/"))));
    return atom("moov",
                {atom("mvhd", header), video, atom("udta", place + atom("MKRI", camera_block(MetadataBlock::maker()))),
                 atom("meta", zeros(4) + keys + list)});
}

void put_kept(const Corpus& corpus) {
    corpus.put("shot_exif", "big-endian", shot_block(ByteOrder::kBig));
    corpus.put("shot_exif", "little-endian", shot_block(ByteOrder::kLittle));
    corpus.put("shot_exif", "camera-movie", camera_block(MetadataBlock::maker()));
    corpus.put("keep", "picture", jpeg_start() + exif_segment(shot_block(ByteOrder::kLittle)) + jpeg_end());
    const Bytes type = atom("ftyp", text("qt  "));
    const Bytes media = atom("mdat", text("samples"));
    corpus.put("keep", "movie", type + media + kept_movie(atom("stco", zeros(4) + be32(1) + be32(20))));
    corpus.put("keep", "index-first", type + kept_movie(atom("co64", zeros(4) + be32(1) + be64(999))) + media);
    corpus.put("keep", "far", media + kept_movie(atom("stco", zeros(4) + be32(1) + be32(0xFFFFFFF0))) + media);
}

void put_texts(const Corpus& corpus) {
    corpus.put("recognition", "picture", text(spherical_text(true)));
    corpus.put("recognition", "movie", text(spherical_text(false)));
    corpus.put("recognition", "both", text(spherical_text(true) + spherical_text(false)));
    corpus.put("recognition", "short", text("<a>TALUMO360Viewer</GPano:StitchingSoftware></GPano:FirstPhotoDate>"));
    corpus.put("metadata_text", "picture", Bytes{1} + be32(64) + be32(32) + text("2026:01:02 03:04:05"));
    corpus.put("metadata_text", "movie", Bytes{0} + zeros(8) + text("2026:01:02 03:04:05"));
}

void put_pictures(const Corpus& corpus) {
    for (const char* chroma : {"420", "422", "444", "gray"}) {
        const Arguments options = {"--size", "48", "--quality", "31", "--chroma", chroma};
        corpus.put("analyze_picture", chroma, corpus.sampled("still", ".jpg", options)[0]);
    }
    for (const char* orientation : {"3", "6", "8"}) {
        const Arguments options = {"--size", "48", "--quality", "31", "--orientation", orientation, "--code", "1"};
        corpus.put("analyze_picture", std::string("orientation-") + orientation,
                   corpus.sampled("still", ".jpg", options)[1]);
    }
    const Bytes xmp = xmp_segment(spherical_text(true));
    const Bytes plain = Corpus::converted(
        "odd.jpg", {"-f", "lavfi", "-i", "testsrc2=s=51x33", "-frames:v", "1", "-q:v", "31", "-pix_fmt", "yuvj420p"});
    corpus.put("analyze_picture", "stitched", jpeg_start() + xmp + slice(plain, 2, plain.size()));
    const Arguments small = {"-f", "lavfi", "-i", "testsrc2=s=32x32", "-frames:v", "1"};
    for (const char* extension : {"png", "bmp", "tiff", "webp", "gif", "ppm"}) {
        corpus.put("analyze_picture", extension, Corpus::converted(std::string("picture.") + extension, small));
    }
}

Arguments small_movie(const Arguments& options) {
    Arguments arguments = {"--size", "48", "--frames", "3"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return arguments;
}

void put_movies(const Corpus& corpus) {
    const std::pair<const char*, Arguments> movies[] = {
        {"h264-baseline", {"--sound", "none"}},
        {"h264-main", {"--sound", "none", "--codec", "h264-main"}},
        {"mjpeg", {"--sound", "none", "--codec", "mjpeg", "--quality", "31"}},
        {"mjpeg-422", {"--sound", "none", "--codec", "mjpeg", "--quality", "31", "--chroma", "422"}},
        {"sound", {"--sound", "both", "--sound-seconds", "0.01"}},
        {"sound-first", {"--sound", "both", "--sound-first", "both", "--sound-seconds", "0.01"}},
        {"fragmented", {"--sound", "none", "--fragmented"}},
        {"moov-first", {"--sound", "none", "--moov-first"}},
        {"orientation-6", {"--sound", "none", "--orientation", "6"}},
    };
    for (const auto& [name, options] : movies) {
        corpus.put("analyze_movie", name, corpus.sampled("movie", ".mov", small_movie(options))[0]);
    }
    const Arguments aac = small_movie({"--sound", "both", "--sound-codec", "aac", "--sound-seconds", "0.05"});
    corpus.put("analyze_movie", "aac", corpus.sampled("movie", ".mp4", aac)[0]);
}

void put_sounds(const Corpus& corpus) {
    const Arguments first = {"-f", "lavfi", "-i", "testsrc2=s=32x32:r=25", "-f", "lavfi", "-i", "sine=r=8000"};
    for (const char* codec : {"pcm_s16le", "pcm_s24le", "pcm_mulaw", "adpcm_ima_qt", "aac", "alac", "libmp3lame"}) {
        Arguments arguments = first;
        const Arguments last = {"-t", "0.3", "-c:v", "mjpeg", "-q:v", "31", "-c:a", codec, "-ac", "2"};
        arguments.insert(arguments.end(), last.begin(), last.end());
        corpus.put("audio", codec, Corpus::converted("sound.mov", arguments));
    }
}

// As small as files of the camera's smallest size can be.
Bytes lens_picture() {
    return Corpus::converted("flat.jpg", {"-f", "lavfi", "-i", "color=gray:s=1440x1440", "-frames:v", "1", "-q:v", "31",
                                          "-huffman", "optimal", "-pix_fmt", "yuvj420p"});
}

Bytes lens_movie(const Arguments& options) {
    Arguments arguments = {"-f", "lavfi", "-i", "color=gray:s=1440x1440:r=30000/1001",
                           "-f", "lavfi", "-i", "sine=r=8000"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const Arguments last = {"-t", "0.1", "-pix_fmt", "yuv420p", "-video_track_timescale", "30000", "-c:a", "pcm_s16le"};
    arguments.insert(arguments.end(), last.begin(), last.end());
    return Corpus::converted("flat.mov", arguments);
}

void put_pair(const Corpus& corpus, const std::string& name, uint8_t kinds, uint8_t options, const Bytes& first,
              const Bytes& second, const std::string& target = "export") {
    corpus.put(target, name, Bytes{kinds, options} + be32(first.size()) + first + second);
}

// The only share of a movie, with its sound uncompressed and as AAC.
void put_shares(const Corpus& corpus, const Bytes& movie) {
    const test_support::TempDir dir;
    const std::string lens = dir.file("lens.mov", movie);
    const std::string output = dir.file("movie.part");
    NQ360_EXPORT_OPTIONS options;
    NQ360_export_options_init(&options);
    options.lens1 = options.lens2 = lens.c_str();
    options.output = output.c_str();
    options.width = 64;
    options.height = 32;
    options.part = options.parts = 1;
    for (options.sound_codec = NQ360_SOUND_PCM; options.sound_codec <= NQ360_SOUND_AAC; ++options.sound_codec) {
        options.keep_metadata = options.sound_codec;
        NQ360_export_with(&options);
        corpus.put("join", options.sound_codec == NQ360_SOUND_AAC ? "aac" : "pcm", test_support::read_file(output));
    }
}

void put_pairs(const Corpus& corpus) {
    const Bytes picture = lens_picture();
    const Bytes baseline = lens_movie({"-c:v", "libx264", "-profile:v", "baseline", "-g", "2"});
    const Bytes main = lens_movie({"-c:v", "libx264", "-profile:v", "main", "-bf", "2"});
    put_pair(corpus, "pictures", 0, 0, picture, picture);
    put_pair(corpus, "movies", 3, 0, baseline, baseline);
    put_pair(corpus, "movies-with-sound", 3, 1, baseline, main);
    put_pair(corpus, "range", 3, 2 | 4 | 8, main, baseline);
    put_pair(corpus, "picture-and-movie", 2, 2, picture, baseline);
    put_pair(corpus, "movie-and-picture", 1, 1, main, picture);
    put_pair(corpus, "wrong-name", 7, 0, baseline, baseline);
    put_pair(corpus, "pictures", 0, 2, picture, picture, "shot");
    put_pair(corpus, "movies", 3, 1 | 8, main, baseline, "shot");
    put_pair(corpus, "movie-and-picture", 1, 4, main, picture, "shot");
    put_shares(corpus, baseline);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s SAMPLE-TOOL CORPUS-FOLDER\n", argv[0]);
        return 2;
    }
    const Corpus corpus(argv[1], argv[2]);
    put_blocks(corpus);
    put_segments(corpus);
    put_atoms(corpus);
    put_kept(corpus);
    put_texts(corpus);
    put_pictures(corpus);
    put_movies(corpus);
    put_sounds(corpus);
    put_pairs(corpus);
    return 0;
}
