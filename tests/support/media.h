// Movies, sound and pictures made by, and looked at with, programs and code that are not the library's own.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/command.h"
#include "support/picture.h"

extern "C" {
#include <libavcodec/avcodec.h>
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

namespace media_detail {

struct Closer {
    void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
    void operator()(AVCodecContext* decoder) const { avcodec_free_context(&decoder); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using Input = std::unique_ptr<AVFormatContext, Closer>;
using Decoder = std::unique_ptr<AVCodecContext, Closer>;
using Packet = std::unique_ptr<AVPacket, Closer>;
using Frame = std::unique_ptr<AVFrame, Closer>;

inline Input open(const std::string& path) {
    AVFormatContext* input = nullptr;
    if (avformat_open_input(&input, ("file:" + path).c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("cannot open " + path);
    }
    return Input(input);
}

inline cv::Mat plane(const AVFrame* frame, int index) {
    const int divisor = index == 0 ? 1 : 2;
    return cv::Mat(frame->height / divisor, frame->width / divisor, CV_8UC1, frame->data[index],
                   static_cast<size_t>(frame->linesize[index]))
        .clone();
}

}  // namespace media_detail

// All frames of a 4:2:0 movie of even size, in the order in which they are shown. Decoded by FFmpeg's own decoder,
// not by the one that the library uses. Throws when a frame is damaged.
inline std::vector<Planes> frames_of(const std::string& path) {
    using namespace media_detail;
    const Input input = open(path);
    const int index = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) {
        return {};
    }
    const AVCodecParameters* parameters = input->streams[index]->codecpar;
    const Decoder decoder(avcodec_alloc_context3(avcodec_find_decoder(parameters->codec_id)));
    avcodec_parameters_to_context(decoder.get(), parameters);
    decoder->err_recognition = AV_EF_EXPLODE;
    if (avcodec_open2(decoder.get(), nullptr, nullptr) < 0) {
        throw std::runtime_error("cannot decode " + path);
    }
    const Packet packet(av_packet_alloc());
    const Frame frame(av_frame_alloc());
    std::vector<Planes> frames;
    for (bool more = true; more;) {
        more = av_read_frame(input.get(), packet.get()) >= 0;
        if (more && packet->stream_index != index) {
            av_packet_unref(packet.get());
            continue;
        }
        if (avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr) < 0) {
            throw std::runtime_error("damaged frame " + std::to_string(frames.size()) + " in " + path);
        }
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            frames.push_back({plane(frame.get(), 0), plane(frame.get(), 1), plane(frame.get(), 2)});
        }
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
    const media_detail::Input input = media_detail::open(path);
    const media_detail::Packet packet(av_packet_alloc());
    std::vector<StoredPacket> packets;
    while (av_read_frame(input.get(), packet.get()) >= 0) {
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

namespace media_detail {

inline Samples samples_in(const std::string& bytes) {
    Samples samples(bytes.size() / 2);
    std::copy_n(bytes.data(), samples.size() * 2, reinterpret_cast<char*>(samples.data()));
    return samples;
}

}  // namespace media_detail

// The samples of a file whose sound is 16-bit PCM, as they are stored.
inline Samples stored_samples(const std::string& path) {
    std::string bytes;
    for (const StoredPacket& packet : packets_of(path)) {
        bytes += packet.video ? "" : packet.bytes;
    }
    return media_detail::samples_in(bytes);
}

// The sound of a file as the distribution's ffmpeg decodes it, in two channels.
inline Samples decoded_samples(const std::string& path) {
    const std::string bytes =
        output_of({"ffmpeg", "-v", "error", "-nostdin", "-i", "file:" + path, "-vn", "-f", "s16le", "-ac", "2", "-"});
    return media_detail::samples_in(bytes);
}

// The first `frames` moments of stereo sound.
inline Samples first_samples(Samples samples, size_t frames) {
    samples.resize(std::min(samples.size(), 2 * frames));
    return samples;
}

}  // namespace test_support
