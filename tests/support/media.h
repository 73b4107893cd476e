// Movies, sound and pictures made by, and looked at with, programs and code that are not the library's own.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/command.h"
#include "support/picture.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/frame.h>
}

namespace test_support {

// Runs the distribution's ffmpeg with these arguments; files that exist are replaced.
inline void run_ffmpeg(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"ffmpeg", "-v", "error", "-nostdin", "-y"});
    output_of(arguments);
}

// Lossless as far as the codec allows, in the camera's units of time: frame i stands at 1001 * i of 1/30000 s.
inline std::vector<std::string> camera_like(std::vector<std::string> codec) {
    codec.insert(codec.end(), {"-video_track_timescale", "30000", "-fps_mode", "passthrough"});
    return codec;
}

// A moving test picture of `size` ("64x64") as `frames` frames at the camera's rate; `codec` are ffmpeg's output
// options.
inline void make_movie(const std::string& path, const std::string& size, int frames,
                       const std::vector<std::string>& codec = {"-c:v", "libx264", "-profile:v", "baseline"}) {
    std::vector<std::string> arguments = {"-f", "lavfi", "-i", "testsrc2=s=" + size + ":r=30000/1001"};
    const std::vector<std::string> output = camera_like(codec);
    arguments.insert(arguments.end(), {"-frames:v", std::to_string(frames), "-pix_fmt", "yuv420p"});
    arguments.insert(arguments.end(), output.begin(), output.end());
    arguments.push_back("file:" + path);
    run_ffmpeg(arguments);
}

// What ffprobe tells of the streams, the container and all packets.
inline nlohmann::json probe(const std::string& path) {
    return nlohmann::json::parse(output_of(
        {"ffprobe", "-v", "error", "-show_streams", "-show_format", "-show_packets", "-of", "json", "file:" + path}));
}

// The one stream of a kind ("video", "audio"); null when there is none.
inline nlohmann::json stream_of(const nlohmann::json& probed, const std::string& kind) {
    for (const nlohmann::json& stream : probed.at("streams")) {
        if (stream.at("codec_type") == kind) {
            return stream;
        }
    }
    return nullptr;
}

using Planes = std::array<cv::Mat, 3>;  // Y, U and V of 4:2:0, CV_8UC1

// All frames of a 4:2:0 movie of even size, in the order in which they are shown.
inline std::vector<Planes> frames_of(const std::string& path) {
    const cv::Size size = size_of(path);
    const std::string bytes = output_of(
        {"ffmpeg", "-v", "error", "-nostdin", "-i", "file:" + path, "-fps_mode", "passthrough", "-f", "rawvideo", "-"});
    std::vector<Planes> frames;
    const auto area = static_cast<size_t>(size.area());
    for (size_t at = 0; at + area * 3 / 2 <= bytes.size(); at += area * 3 / 2) {
        char* luma = const_cast<char*>(bytes.data()) + at;
        const cv::Size half(size.width / 2, size.height / 2);
        frames.push_back({cv::Mat(size, CV_8UC1, luma).clone(), cv::Mat(half, CV_8UC1, luma + area).clone(),
                          cv::Mat(half, CV_8UC1, luma + area * 5 / 4).clone()});
    }
    return frames;
}

// A packet as the file holds it.
struct StoredPacket {
    bool video = false;
    int64_t pts = 0;
    int64_t duration = 0;
    int64_t position = 0;  // in the file
    double seconds = 0;
    std::string bytes;
};

// All packets in the order of the file, read with the FFmpeg that the library uses: the distribution's older one
// does not know PCM sound in MP4.
inline std::vector<StoredPacket> packets_of(const std::string& path) {
    AVFormatContext* input = nullptr;
    if (avformat_open_input(&input, ("file:" + path).c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("cannot open " + path);
    }
    const std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> closer(
        input, [](AVFormatContext* context) { avformat_close_input(&context); });
    const std::unique_ptr<AVPacket, void (*)(AVPacket*)> packet(av_packet_alloc(),
                                                                [](AVPacket* p) { av_packet_free(&p); });
    std::vector<StoredPacket> packets;
    while (av_read_frame(input, packet.get()) >= 0) {
        const AVStream* stream = input->streams[packet->stream_index];
        StoredPacket stored;
        stored.video = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        stored.pts = packet->pts;
        stored.duration = packet->duration;
        stored.position = packet->pos;
        stored.seconds = static_cast<double>(packet->pts) * av_q2d(stream->time_base);
        stored.bytes.assign(reinterpret_cast<const char*>(packet->data), static_cast<size_t>(packet->size));
        packets.push_back(stored);
        av_packet_unref(packet.get());
    }
    return packets;
}

inline std::vector<int64_t> video_times(const std::string& path) {
    std::vector<int64_t> times;
    for (const StoredPacket& packet : packets_of(path)) {
        if (packet.video) {
            times.push_back(packet.pts);
        }
    }
    return times;
}

using Samples = std::vector<int16_t>;  // left, right, left, right, ...

// The samples of a file whose sound is 16-bit PCM, as they are stored.
inline Samples stored_samples(const std::string& path) {
    std::string bytes;
    for (const StoredPacket& packet : packets_of(path)) {
        bytes += packet.video ? "" : packet.bytes;
    }
    Samples samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

// The sound of a file as the distribution's ffmpeg decodes it, in two channels.
inline Samples decoded_samples(const std::string& path) {
    const std::string bytes =
        output_of({"ffmpeg", "-v", "error", "-nostdin", "-i", "file:" + path, "-vn", "-f", "s16le", "-ac", "2", "-"});
    Samples samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

// The first `frames` moments of stereo sound.
inline Samples first_samples(Samples samples, size_t frames) {
    samples.resize(std::min(samples.size(), 2 * frames));
    return samples;
}

}  // namespace test_support
