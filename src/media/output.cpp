// The output side: container, video stream, encoder.
#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include "media/ffmpeg_ptr.h"
#include "media/frame_ticks.h"
#include "media/jpeg_quality.h"
#include "media/libavif.h"
#include "media/share_file.h"

namespace {

// openh264 refuses more bits a second than its highest level has.
constexpr double kMostOpenh264BitRate = 288e6;

const AVCodec* find_video_encoder(AVCodecID id) {
    const AVCodec* codec = id == AV_CODEC_ID_H264 ? avcodec_find_encoder_by_name("libopenh264") : nullptr;
    return codec ? codec : avcodec_find_encoder(id);
}

AVPixelFormat first_pixel_format(const AVCodec* codec) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100)
    const void* formats = nullptr;
    avcodec_get_supported_config(nullptr, codec, AV_CODEC_CONFIG_PIX_FORMAT, 0, &formats, nullptr);
    return formats ? *static_cast<const AVPixelFormat*>(formats) : AV_PIX_FMT_YUV420P;
#else
    return codec->pix_fmts ? codec->pix_fmts[0] : AV_PIX_FMT_YUV420P;
#endif
}

AVPixelFormat encoder_pixel_format(const AVCodec* codec) {
    switch (codec->id) {
        case AV_CODEC_ID_MJPEG:
            return AV_PIX_FMT_YUVJ420P;
        case AV_CODEC_ID_H264:
            return AV_PIX_FMT_YUV420P;
        default:
            return first_pixel_format(codec);
    }
}

// The source's bit rate, scaled by the area.
int64_t scaled_bit_rate(const AVCodecContext* source, AVCodecID codec, int width, int height) {
    if (source->width <= 0 || source->height <= 0) {
        return 0;
    }
    const double rate = static_cast<double>(height) / source->height *
                        (static_cast<double>(width) / source->width * static_cast<double>(source->bit_rate));
    const double most = codec == AV_CODEC_ID_H264 ? kMostOpenh264BitRate : 9e18;
    return static_cast<int64_t>(std::floor(std::clamp(rate, 0.0, most)));
}

// Picture muxers open and close their files themselves, under a name they may cut or take for a pattern.
int open_picture(AVFormatContext* output, AVIOContext** io, const char* /*url*/, int /*flags*/,
                 AVDictionary** /*options*/) {
    auto* media = static_cast<libavIF*>(output->opaque);
    const int result = media->output_file.open(media->output_path);
    *io = media->output_file.io();
    return result;
}

int close_picture(AVFormatContext* output, AVIOContext* /*io*/) {
    return static_cast<libavIF*>(output->opaque)->output_file.close();
}

}  // namespace

int libavIF::open_output(const char* path) {
    return open_output_named(path, nullptr);
}

int libavIF::open_output_named(const char* path, const char* format) {
    if (!path) {
        return fail(AVERROR(EINVAL));
    }
    output_path = path;
    error_code = avformat_alloc_output_context2(&output_format, nullptr, format, file_url(path).c_str());
    if (error_code < 0) {
        return fail(error_code);
    }
    if (output_format->oformat->flags & AVFMT_NOFILE) {
        output_format->opaque = this;
        output_format->io_open = open_picture;
        output_format->io_close2 = close_picture;
        error_code = av_opt_set(output_format->priv_data, "update", "1", 0);  // one file, not a numbered row of them
        if (error_code < 0) {
            close_output_file();
            return fail(error_code);
        }
    }
    return 0;
}

int libavIF::open_output_io() {
    if (output_format->oformat->flags & AVFMT_NOFILE) {
        return 0;
    }
    const int result = output_file.open(output_path);
    output_format->pb = output_file.io();
    return result < 0 ? fail(result) : 0;
}

int libavIF::source_of_longer_duration() const {
    return input_format[0]->duration > input_format[1]->duration ? 0 : 1;
}

int libavIF::add_video_stream(AVCodecID codec_id, int picture_width, int picture_height, int source) {
    const bool chosen = source == 0 || source == 1;
    const int input = chosen ? source : source_of_longer_duration();
    // Where the longer input is followed, its stream is taken at input 1's index, deliberately: both inputs come
    // from one camera. An input without that many streams has its own.
    int index = video_stream_index[chosen ? input : 0];
    if (index < 0 || static_cast<unsigned>(index) >= input_format[input]->nb_streams) {
        index = video_stream_index[input];
    }
    const AVStream* source_stream = input_format[input]->streams[index];

    VideoSettings settings = {};
    settings.codec = codec_id;
    settings.width = picture_width;
    settings.height = picture_height;
    settings.bit_rate = codec_id == AV_CODEC_ID_H264 && video_bit_rate > 0
                            ? video_bit_rate
                            : scaled_bit_rate(video_decoder[input], codec_id, picture_width, picture_height);
    settings.frame_time = {static_cast<int>(kFrameTicks), source_stream->time_base.den};
    settings.stream_time = source_stream->time_base;
    return open_video_stream(settings);
}

int libavIF::open_video_stream(const VideoSettings& settings) {
    const AVCodecID codec_id = settings.codec;
    video_codec = find_video_encoder(codec_id);
    if (!video_codec) {
        return fail(AVERROR_EXIT, "Colud not finde encoder");
    }
    video_stream = avformat_new_stream(output_format, video_codec);
    if (!video_stream) {
        return fail(AVERROR_EXIT, "Could not allocate stream\n");
    }
    video_stream->id = static_cast<int>(output_format->nb_streams) - 1;
    video_encoder_context = avcodec_alloc_context3(video_codec);
    if (!video_encoder_context) {
        return fail(AVERROR(ENOMEM));
    }
    AVCodecContext* encoder = video_encoder_context;
    encoder->codec_id = codec_id;
    encoder->bit_rate = settings.bit_rate;
    if (codec_id == AV_CODEC_ID_MJPEG && picture_quality > 0) {
        encoder->flags |= AV_CODEC_FLAG_QSCALE;
        encoder->global_quality = FF_QP2LAMBDA * jpeg_quantiser(picture_quality);
        encoder->qmin = 1;  // else quantisers end at 2
    }
    encoder->width = settings.width;
    encoder->height = settings.height;
    encoder->time_base = settings.frame_time;
    encoder->pix_fmt = encoder_pixel_format(video_codec);
    encoder->color_range = codec_id == AV_CODEC_ID_MJPEG ? AVCOL_RANGE_JPEG : AVCOL_RANGE_UNSPECIFIED;
    encoder->log_level_offset = kErrorsOnly;
    if (codec_id == AV_CODEC_ID_H264) {
        video_stream->time_base = settings.stream_time;
    }
    if (output_format->oformat->flags & AVFMT_GLOBALHEADER) {
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    error_code = avcodec_open2(encoder, video_codec, nullptr);
    if (error_code >= 0) {
        error_code = avcodec_parameters_from_context(video_stream->codecpar, encoder);
    }
    return error_code < 0 ? fail(error_code) : 0;
}

int encode_video_frame(AVCodecContext* encoder, const AVFrame* frame, AVPacket* packet) {
    const int sent = avcodec_send_frame(encoder, frame);
    if (sent < 0 && sent != AVERROR_EOF) {  // a flush told twice is none the worse
        return sent;
    }
    const int received = avcodec_receive_packet(encoder, packet);
    if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) {
        return 0;
    }
    return received < 0 ? received : 1;
}

int libavIF::write_video_packet(int encode_result, AVPacket* packet) {
    if (encode_result < 0) {
        return fail(encode_result);
    }
    if (encode_result == 0) {
        return 0;
    }
    packet->stream_index = video_stream->index;
    if (packet->duration == 0) {
        packet->duration = kFrameTicks;  // a player that adds up durations needs the last one too
    }
    // Times go in the encoder's units, deliberately unscaled: the stream's time base and the step fit them.
    error_code = share_file ? share_file->write_picture(packet) : av_interleaved_write_frame(output_format, packet);
    return error_code < 0 ? fail(error_code) : 1;
}

int libavIF::write_video_frame(AVFrame* frame) {
    const PacketPtr packet(av_packet_alloc());
    if (!packet) {
        return fail(AVERROR(ENOMEM));
    }
    const int written =
        write_video_packet(encode_video_frame(video_encoder_context, frame, packet.get()), packet.get());
    if (written < 0) {
        return written;
    }
    return !frame && written == 0 ? 1 : 0;
}

int libavIF::close_output_io() {
    if (output_format && output_format->pb && output_format->pb != output_file.io()) {
        return avio_closep(&output_format->pb);  // opened by who takes the steps of writing one by one
    }
    const int closed = output_file.close();
    if (output_format) {
        output_format->pb = nullptr;
    }
    return closed;
}

int libavIF::finish_output() {
    const int ended = av_write_trailer(output_format);
    const int closed = close_output_io();
    if (ended < 0 || closed < 0) {
        return fail(ended < 0 ? ended : closed);
    }
    return 0;
}

void libavIF::close_output_file() {
    avcodec_free_context(&video_encoder_context);
    sws_freeContext(sws_context);
    sws_context = nullptr;
    av_audio_fifo_free(audio_fifo);
    audio_fifo = nullptr;
    avcodec_free_context(&audio_encoder_context);
    swr_free(&swr_context);
    av_frame_free(&audio_frame);
    close_output_io();
    avformat_free_context(output_format);
    output_format = nullptr;
    video_stream = nullptr;
    audio_stream = nullptr;
}
