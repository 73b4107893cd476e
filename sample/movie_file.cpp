#include "sample/movie_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
}

#include "sample/sound.h"

namespace sample {
namespace {

AVRational frame_rate(const MovieOptions& options) {
    return {options.rate[0], options.rate[1]};
}

// The camera's bit rates; other sizes get as many bits a pixel as 1936 does.
int64_t default_bit_rate(int size) {
    if (size == 1440) {
        return 18000000;
    }
    return std::max<int64_t>(200000, 30000000LL * size * size / (1936 * 1936));
}

int profile_of(const std::string& codec) {
    if (codec == "h264-main") {
        return AV_PROFILE_H264_MAIN;
    }
    return codec == "h264-high" ? AV_PROFILE_H264_HIGH : AV_PROFILE_H264_CONSTRAINED_BASELINE;
}

CodecContext open_h264(const MovieOptions& options, const std::string& name) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libopenh264");
    CodecContext context = make_context(codec, "encoder libopenh264");
    context->pix_fmt = options.full_range ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P;
    context->profile = profile_of(name);
    context->bit_rate = options.bit_rate > 0 ? options.bit_rate : default_bit_rate(options.size);
    context->gop_size = options.key_frames;
    return context;
}

CodecContext open_mjpeg(const MovieOptions& options) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    CodecContext context = make_context(codec, "MJPEG encoder");
    context->pix_fmt = full_range_format(chroma_named(options.chroma));
    context->color_range = AVCOL_RANGE_JPEG;
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->global_quality = options.quality * FF_QP2LAMBDA;
    return context;
}

bool is_mp4(const std::string& path) {
    const size_t dot = path.rfind('.');
    std::string extension = dot == std::string::npos ? "" : path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".mp4";
}

AVFormatContext* make_muxer(const std::string& path) {
    AVFormatContext* context = nullptr;
    // The protocol by name, so that a colon in the file's name is none.
    const std::string url = "file:" + path;
    check(avformat_alloc_output_context2(&context, nullptr, is_mp4(path) ? "mp4" : "mov", url.c_str()), path);
    context->flags |= AVFMT_FLAG_BITEXACT;
    return context;
}

AVStream* add_stream(AVFormatContext* muxer, AVCodecContext* encoder) {
    AVStream* stream = check_made(avformat_new_stream(muxer, nullptr), "a track");
    stream->time_base = encoder->time_base;
    check(avcodec_parameters_from_context(stream->codecpar, encoder), "a track");
    return stream;
}

void set_global_header(AVFormatContext* muxer, AVCodecContext* encoder) {
    if ((muxer->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
}

// Sends a frame (none: the end) to the encoder and writes the packets that come out; `complete` fills in what the
// encoder leaves open in a packet.
template <typename Complete>
void encode(AVFormatContext* muxer, AVStream* stream, AVCodecContext* encoder, const AVFrame* frame,
            Complete complete) {
    check(avcodec_send_frame(encoder, frame), "encoding a movie");
    const Packet packet = make_packet();
    for (;;) {
        const int result = avcodec_receive_packet(encoder, packet.get());
        if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
            return;
        }
        check(result, "encoding a movie");
        complete(packet.get());
        av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
        packet->stream_index = stream->index;
        check(av_interleaved_write_frame(muxer, packet.get()), "writing a movie");
    }
}

}  // namespace

bool is_full_range(const MovieOptions& options, const std::string& codec) {
    return codec == "mjpeg" || options.full_range;
}

class MovieFile::VideoTrack {
  public:
    VideoTrack(AVFormatContext* muxer, const MovieOptions& options, const std::string& codec)
        : muxer_(muxer),
          rate_(frame_rate(options)),
          encoder_(codec == "mjpeg" ? open_mjpeg(options) : open_h264(options, codec)) {
        encoder_->width = encoder_->height = options.size;
        encoder_->time_base = {1, options.time_scale};
        encoder_->framerate = rate_;
        set_global_header(muxer, encoder_.get());
        check(avcodec_open2(encoder_.get(), encoder_->codec, nullptr), "opening the encoder " + codec);
        stream_ = add_stream(muxer, encoder_.get());
        stream_->avg_frame_rate = rate_;
    }

    void write(const Picture& picture) {
        const Frame frame = borrow(picture, encoder_->pix_fmt);
        frame->pts = time_of(frames_++);
        frame->quality = encoder_->global_quality;
        send(frame.get());
    }

    void finish() { send(nullptr); }

    double seconds() const { return static_cast<double>(time_of(frames_)) * av_q2d(encoder_->time_base); }

  private:
    int64_t time_of(int64_t frame) const { return av_rescale_q(frame, av_inv_q(rate_), encoder_->time_base); }

    // None of the encoders changes the order of the frames.
    void send(const AVFrame* frame) {
        encode(muxer_, stream_, encoder_.get(), frame, [this](AVPacket* packet) {
            packet->duration = time_of(packets_ + 1) - time_of(packets_);
            ++packets_;
        });
    }

    AVFormatContext* muxer_;
    AVRational rate_;
    CodecContext encoder_;
    AVStream* stream_;
    int64_t frames_ = 0;
    int64_t packets_ = 0;
};

class MovieFile::SoundTrack {
  public:
    SoundTrack(AVFormatContext* muxer, const MovieOptions& options, int movie) : muxer_(muxer), movie_(movie) {
        const bool pcm = options.sound_codec == "pcm";
        const AVCodec* codec = avcodec_find_encoder(pcm ? AV_CODEC_ID_PCM_S16LE : AV_CODEC_ID_AAC);
        encoder_ = make_context(codec, "sound encoder " + options.sound_codec);
        encoder_->sample_fmt = pcm ? AV_SAMPLE_FMT_S16 : AV_SAMPLE_FMT_FLTP;
        encoder_->sample_rate = options.sound_rate;
        encoder_->time_base = {1, options.sound_rate};
        encoder_->bit_rate = pcm ? 0 : 128000;
        av_channel_layout_default(&encoder_->ch_layout, options.sound_channels);
        set_global_header(muxer, encoder_.get());
        check(avcodec_open2(encoder_.get(), codec, nullptr), "opening the sound encoder");
        stream_ = add_stream(muxer, encoder_.get());
    }

    // Writes the whole blocks that end by this time.
    void write_until(double seconds) {
        while (written_ + block() <= std::llround(seconds * encoder_->sample_rate)) {
            write_block(block());
        }
    }

    // Writes up to exactly this time, however short the last block is.
    void finish(double seconds) {
        const auto total = std::llround(seconds * encoder_->sample_rate);
        while (written_ < total) {
            write_block(static_cast<int>(std::min<int64_t>(block(), total - written_)));
        }
        send(nullptr);
    }

  private:
    int block() const { return encoder_->frame_size > 0 ? encoder_->frame_size : 1024; }

    void write_block(int count) {
        const Frame frame = make_frame();
        frame->format = encoder_->sample_fmt;
        frame->nb_samples = count;
        frame->sample_rate = encoder_->sample_rate;
        frame->pts = written_;
        check(av_channel_layout_copy(&frame->ch_layout, &encoder_->ch_layout), "sound");
        check(av_frame_get_buffer(frame.get(), 0), "sound");
        const int channels = encoder_->ch_layout.nb_channels;
        for (int i = 0; i < count; ++i) {
            for (int channel = 0; channel < channels; ++channel) {
                const int16_t value = sound_sample(movie_, channel, written_ + i, encoder_->sample_rate);
                if (encoder_->sample_fmt == AV_SAMPLE_FMT_S16) {
                    reinterpret_cast<int16_t*>(frame->data[0])[i * channels + channel] = value;
                } else {
                    reinterpret_cast<float*>(frame->extended_data[channel])[i] = static_cast<float>(value) / 32768.0f;
                }
            }
        }
        written_ += count;
        send(frame.get());
    }

    void send(const AVFrame* frame) {
        encode(muxer_, stream_, encoder_.get(), frame, [frame](AVPacket* packet) {
            if (packet->duration == 0 && frame) {
                packet->duration = frame->nb_samples;
            }
        });
    }

    AVFormatContext* muxer_;
    int movie_;
    CodecContext encoder_;
    AVStream* stream_;
    int64_t written_ = 0;
};

void MovieFile::ContextDeleter::operator()(AVFormatContext* context) const {
    avio_closep(&context->pb);
    avformat_free_context(context);
}

MovieFile::MovieFile(const MovieOptions& options, size_t index)
    : context_(make_muxer(options.outputs[index])), sound_seconds_(options.sound_seconds) {
    const std::string& path = options.outputs[index];
    const auto add_sound = [&] {
        if (options.sound[index]) {
            sound_ = std::make_unique<SoundTrack>(context_.get(), options, static_cast<int>(index) + 1);
        }
    };
    if (options.sound_first[index]) {
        add_sound();
    }
    video_ = std::make_unique<VideoTrack>(context_.get(), options, options.codecs[index]);
    if (!options.sound_first[index]) {
        add_sound();
    }
    check(avio_open(&context_->pb, context_->url, AVIO_FLAG_WRITE), path);
    AVDictionary* muxer_options = nullptr;
    av_dict_set_int(&muxer_options, "video_track_timescale", options.time_scale, 0);
    if (options.fragmented) {
        // Positions relative to each fragment, so that the maker's atom can be put in before them.
        av_dict_set(&muxer_options, "movflags", "frag_keyframe+empty_moov+default_base_moof+skip_trailer", 0);
    }
    const int result = avformat_write_header(context_.get(), &muxer_options);
    av_dict_free(&muxer_options);
    check(result, path);
}

MovieFile::~MovieFile() = default;

void MovieFile::write(const Picture& picture) {
    video_->write(picture);
    if (sound_) {
        const double played = video_->seconds();
        sound_->write_until(sound_seconds_ < 0 ? played : std::min(played, sound_seconds_));
    }
}

void MovieFile::finish() {
    if (sound_) {
        sound_->finish(sound_seconds_ < 0 ? video_->seconds() : sound_seconds_);
    }
    video_->finish();
    check(av_write_trailer(context_.get()), "finishing a movie");
    check(avio_closep(&context_->pb), "finishing a movie");
}

}  // namespace sample
