// Pictures and movies of no camera, made by the ffmpeg program; and how a movie gets the camera's metadata.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/bytes.h"
#include "support/command.h"
#include "support/temp_dir.h"

namespace test_support {

// Encodes a test pattern of this size ("320x180"), as JPEG in full range; `more` are the encoder's options, before
// the output.
inline std::string make_plain_picture(const std::string& path, const std::string& size,
                                      const std::vector<std::string>& more = {}) {
    std::vector<std::string> arguments = {
        "ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=" + size, "-frames:v", "1"};
    if (path.size() > 4 && path.substr(path.size() - 4) == ".jpg") {
        arguments.insert(arguments.end(), {"-pix_fmt", "yuvj420p"});
    }
    arguments.insert(arguments.end(), more.begin(), more.end());
    arguments.push_back("file:" + path);
    output_of(arguments);
    return path;
}

// A movie of 15 frames, half a second, with a tone in the given codec ("" for none).
inline std::string make_plain_movie(const std::string& path, const std::string& sound_codec,
                                    const std::string& size = "320x180", const std::string& video_codec = "mjpeg") {
    std::vector<std::string> arguments = {"ffmpeg", "-v",    "error", "-y",
                                          "-f",     "lavfi", "-i",    "testsrc2=rate=30000/1001:size=" + size};
    if (!sound_codec.empty()) {
        arguments.insert(arguments.end(), {"-f", "lavfi", "-i", "sine=sample_rate=48000", "-c:a", sound_codec});
    }
    const std::string format = video_codec == "mjpeg" ? "yuvj420p" : "yuv420p";
    // Without the encoder's name there is no udta atom yet.
    arguments.insert(arguments.end(), {"-t", "0.5", "-c:v", video_codec, "-pix_fmt", format, "-map_metadata", "-1",
                                       "-fflags", "+bitexact", "-flags", "+bitexact", "file:" + path});
    output_of(arguments);
    return path;
}

// Appends a child to the movie atom, which must be the file's last one, as ffmpeg writes it.
inline void append_to_moov(const std::string& path, const Bytes& child) {
    Bytes movie = read_file(path);
    size_t at = 0;
    while (at + 8 <= movie.size() && to_string(slice(movie, at + 4, at + 8)) != "moov") {
        const uint64_t size = read_big_endian(movie, at, 4);
        at += static_cast<size_t>(size == 1 ? read_big_endian(movie, at + 8, 8) : size);
    }
    if (at + 8 > movie.size() || at + read_big_endian(movie, at, 4) != movie.size()) {
        throw std::runtime_error(path + " does not end with its movie atom");
    }
    movie += child;
    overwrite(movie, at, be32(movie.size() - at));
    write_file(path, movie);
}

// Makes a movie one of the camera's.
inline void add_maker_block(const std::string& path, const CameraValues& values = {}) {
    append_to_moov(path, atom("udta", {atom("MKRI", camera_block(MetadataBlock::maker(), values))}));
}

}  // namespace test_support
