// Sound: decoding, resampling to 16-bit stereo, and writing in blocks, for the export and for extraction.
#include <algorithm>
#include <cstdint>

extern "C" {
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
}

#include "base/files.h"
#include "base/log.h"
#include "base/progress.h"
#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/output_closer.h"
#include "media/share_file.h"

namespace {

constexpr AVChannelLayout kStereo = AV_CHANNEL_LAYOUT_STEREO;

AVSampleFormat first_sample_format(const AVCodec* codec) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(61, 13, 100)
    const void* formats = nullptr;
    avcodec_get_supported_config(nullptr, codec, AV_CODEC_CONFIG_SAMPLE_FORMAT, 0, &formats, nullptr);
    return formats ? *static_cast<const AVSampleFormat*>(formats) : AV_SAMPLE_FMT_FLTP;
#else
    return codec->sample_fmts ? codec->sample_fmts[0] : AV_SAMPLE_FMT_FLTP;
#endif
}

// Bits per second where nothing is asked for; 0: the source's, which of uncompressed sound is far too much for AAC.
int usual_bit_rate(AVCodecID codec) {
    return codec == AV_CODEC_ID_AAC ? 160000 : 0;
}

// Planes of converted samples, freed together.
class SampleBuffer {
  public:
    ~SampleBuffer() { av_freep(&planes_[0]); }
    SampleBuffer() = default;
    SampleBuffer(const SampleBuffer&) = delete;
    SampleBuffer& operator=(const SampleBuffer&) = delete;

    int allocate(int channels, int samples, AVSampleFormat format) {
        return av_samples_alloc(planes_, nullptr, channels, samples, format, 0);
    }
    uint8_t** planes() { return planes_; }

  private:
    uint8_t* planes_[AV_NUM_DATA_POINTERS] = {};
};

// What an extraction announces as its total: how many packets like the first one the stream's duration holds. That is
// below 0 where the duration is not known. A packet without a duration counts as one tick.
int64_t announced_total(const AVStream* stream, const AVPacket* first) {
    return stream->duration / std::max<int64_t>(first->duration, 1);
}

}  // namespace

int libavIF::sound_source() const {
    return sound_input >= 0 ? sound_input : !hasAudio(0);
}

int libavIF::add_audio_stream(AVCodecID codec_id, int bit_rate) {
    const int input = sound_source();
    if (!hasAudio(input)) {
        return fail(AVERROR_STREAM_NOT_FOUND);
    }
    const AVStream* source = input_format[input]->streams[audio_stream_index[input]];
    const int64_t rate = bit_rate ? bit_rate : audio_decoder[input]->bit_rate;
    return open_sound_stream({codec_id, source->codecpar->sample_rate, rate});
}

int libavIF::open_sound_stream(const SoundSettings& settings) {
    audio_codec = avcodec_find_encoder(settings.codec);
    if (!audio_codec) {
        return fail(AVERROR_EXIT, "Colud not find encoder");
    }
    audio_stream = avformat_new_stream(output_format, audio_codec);
    if (!audio_stream) {
        return fail(AVERROR_EXIT, "Could not allocate stream\n");
    }
    CodecPtr encoder(avcodec_alloc_context3(audio_codec));
    if (!encoder) {
        return fail(AVERROR(ENOMEM));
    }
    encoder->sample_fmt = first_sample_format(audio_codec);
    encoder->codec_id = settings.codec;
    encoder->sample_rate = settings.sample_rate;
    encoder->bit_rate = settings.bit_rate;
    if (encoder->bit_rate < 0) {
        return fail(AVERROR(EINVAL));  // as FFmpeg does, which would print a line about it
    }
    if (settings.codec == AV_CODEC_ID_AAC && (output_format->oformat->flags & AVFMT_GLOBALHEADER)) {
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    encoder->ch_layout = kStereo;
    encoder->log_level_offset = kErrorsOnly;
    audio_stream->id = static_cast<int>(output_format->nb_streams) - 1;
    audio_stream->time_base = {1, settings.sample_rate};
    error_code = avcodec_open2(encoder.get(), audio_codec, nullptr);
    if (error_code >= 0) {
        error_code = avcodec_parameters_from_context(audio_stream->codecpar, encoder.get());
    }
    if (error_code < 0) {
        return fail(error_code);
    }
    audio_encoder_context = encoder.release();
    return 0;
}

int libavIF::audio_block_size() const {
    return audio_encoder_context && audio_encoder_context->frame_size > 0 ? audio_encoder_context->frame_size : 1000;
}

int libavIF::init_swr_context() {
    const AVCodecContext* decoder = audio_decoder[sound_source()];
    const AVCodecContext* encoder = audio_encoder_context;
    audio_frame = av_frame_alloc();
    swr_context = swr_alloc();
    if (!audio_frame || !swr_context) {
        fail(AVERROR(ENOMEM));
        return error_code = -1;
    }
    // Counts without layouts: what a camera means by two channels is left and right.
    const AVChannelLayout in = {AV_CHANNEL_ORDER_UNSPEC, decoder->ch_layout.nb_channels, {0}, nullptr};
    const AVChannelLayout out = {AV_CHANNEL_ORDER_UNSPEC, encoder->ch_layout.nb_channels, {0}, nullptr};
    av_opt_set_chlayout(swr_context, "in_chlayout", &in, 0);
    av_opt_set_int(swr_context, "in_sample_rate", decoder->sample_rate, 0);
    av_opt_set_sample_fmt(swr_context, "in_sample_fmt", decoder->sample_fmt, 0);
    av_opt_set_chlayout(swr_context, "out_chlayout", &out, 0);
    av_opt_set_int(swr_context, "out_sample_rate", encoder->sample_rate, 0);
    av_opt_set_sample_fmt(swr_context, "out_sample_fmt", encoder->sample_fmt, 0);
    resampled = {decoder->ch_layout.nb_channels, decoder->sample_fmt, decoder->sample_rate};
    error_code = swr_init(swr_context);
    return error_code < 0 ? fail(error_code) : 0;
}

int libavIF::init_audio_fifo() {
    audio_fifo =
        av_audio_fifo_alloc(audio_encoder_context->sample_fmt, audio_encoder_context->ch_layout.nb_channels, 1);
    return audio_fifo ? 0 : fail(AVERROR(ENOMEM), "Colud Not allocate Audio Fifo");
}

int libavIF::store_samples(const AVFrame* frame) {
    if (frame->ch_layout.nb_channels != resampled.channels || frame->format != resampled.format ||
        frame->sample_rate != resampled.rate) {
        return fail(AVERROR_INPUT_CHANGED);  // the resampler would read channels that are not there
    }
    const AVCodecContext* encoder = audio_encoder_context;
    SampleBuffer samples;
    int result = samples.allocate(encoder->ch_layout.nb_channels, frame->nb_samples, encoder->sample_fmt);
    if (result >= 0) {
        // Both rates are equal, so as many samples come out as go in.
        result = swr_convert(swr_context, samples.planes(), frame->nb_samples,
                             const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
    }
    if (result >= 0) {
        result = av_audio_fifo_realloc(audio_fifo, av_audio_fifo_size(audio_fifo) + frame->nb_samples);
    }
    if (result >= 0) {
        result = av_audio_fifo_write(audio_fifo, reinterpret_cast<void**>(samples.planes()), frame->nb_samples);
    }
    if (result < 0) {
        return fail(result);
    }
    // The count of samples is put into words as if it were an error, deliberately: a job that is stopped afterwards
    // tells this text.
    av_strerror(result, error_text, sizeof(error_text));
    return result;
}

int libavIF::read_decode_stroe(int input, AVPacket* packet, int* finished, float start, float end) {
    const int i = input ? 1 : 0;
    const AVStream* stream = input_format[i]->streams[audio_stream_index[i]];
    AVCodecContext* decoder = audio_decoder[i];
    FramePtr frame(av_frame_alloc());
    if (!frame) {
        return fail(AVERROR(ENOMEM), "Colud Not allocate input frame");
    }
    if (packet->size <= 0) {
        return 0;  // nothing to hear; the decoder would take it for the end of all sound
    }
    int result = avcodec_send_packet(decoder, packet);
    if (result < 0) {
        return fail(result);
    }
    int stored = 0;
    while ((result = avcodec_receive_frame(decoder, frame.get())) >= 0) {
        *finished = 0;
        frame->pts = frame->best_effort_timestamp;
        const double seconds = av_q2d(stream->time_base) * static_cast<double>(frame->pts);
        if (seconds < (start > 0 ? static_cast<double>(start) : 0.0)) {
            continue;
        }
        if (seconds > (end > 0 ? static_cast<double>(end) : 9999.0)) {
            *finished = 1;
            continue;
        }
        stored = store_samples(frame.get());
        if (stored < 0) {
            return stored;
        }
    }
    return result == AVERROR(EAGAIN) ? stored : fail(result);
}

int libavIF::load_encode_write() {
    AVCodecContext* encoder = audio_encoder_context;
    encoder->frame_size = audio_block_size();
    nq360_log(1, "frame %d", encoder->frame_size);
    const int samples = std::min(av_audio_fifo_size(audio_fifo), encoder->frame_size);
    FramePtr frame(av_frame_alloc());
    if (!frame) {
        return fail(AVERROR(ENOMEM), "Colud Not allocate input frame");
    }
    frame->nb_samples = samples;
    frame->ch_layout = kStereo;
    frame->format = encoder->sample_fmt;
    frame->sample_rate = encoder->sample_rate;
    const int result = av_frame_get_buffer(frame.get(), 0);
    if (result < 0) {
        return fail(result);
    }
    if (av_audio_fifo_read(audio_fifo, reinterpret_cast<void**>(frame->data), samples) < samples) {
        return fail(AVERROR_EXIT, "Colud Not read data from audio fifo");
    }
    int got_packet = 0;
    return std::min(encode_audio_frame(frame.get(), &got_packet), 0);
}

int libavIF::encode_audio_frame(AVFrame* frame, int* got_packet) {
    *got_packet = 0;
    PacketPtr packet(av_packet_alloc());
    if (!packet) {
        return fail(AVERROR(ENOMEM));
    }
    if (frame) {
        frame->pts = audio_pts;
        audio_pts += frame->nb_samples;
    }
    int result = avcodec_send_frame(audio_encoder_context, frame);
    if (result < 0 && result != AVERROR_EOF) {
        return fail(result);
    }
    result = avcodec_receive_packet(audio_encoder_context, packet.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) {
        return 0;
    }
    if (result < 0) {
        return fail(result);
    }
    *got_packet = 1;
    packet->stream_index = audio_stream->index;
    // AAC begins before the first sample, with what its decoder needs for it; the container leaves that unheard.
    if (packet->pts >= 0 || audio_encoder_context->codec_id == AV_CODEC_ID_AAC) {
        return write_sound_packet(packet.get());
    }
    return 0;
}

int libavIF::write_sound_packet(AVPacket* packet) {
    // Straight to the file: pictures alone go through the muxer's interleaving; deliberate.
    const int result = share_file ? share_file->write_sound(packet) : av_write_frame(output_format, packet);
    return result < 0 ? fail(result) : 0;
}

int libavIF::wtire_audio2(int input, AVPacket* packet, int* finished, int frame_size, float start, float end) {
    int result = read_decode_stroe(input, packet, finished, start, end);
    if (result >= 0 && av_audio_fifo_size(audio_fifo) < frame_size) {
        av_packet_unref(packet);
        return 0;
    }
    while (result >= 0) {
        const int held = av_audio_fifo_size(audio_fifo);
        if (held < frame_size && (!*finished || held == 0)) {
            av_packet_unref(packet);
            return 0;
        }
        result = load_encode_write();
    }
    close_output_file();  // sound that fails ends the whole output
    av_packet_unref(packet);
    return result;
}

// The sound output of an export, when an input has sound.
int libavIF::add_sound_output(int audio_source) {
    if (!hasAudio(0) && !hasAudio(1)) {
        return 0;
    }
    sound_input = hasAudio(audio_source) && (audio_source == 0 || audio_source == 1) ? audio_source : !hasAudio(0);
    nq360_log(1, "[libavIF::write_video] add audio stream ");
    if (add_audio_stream(sound_codec, usual_bit_rate(sound_codec)) < 0) {
        nq360_log(3, "[libavIF::write_video] add audio stream error %d:%s", error_code, error_text);
        return error_code;
    }
    nq360_log(1, "[libavIF::write_video] init swr_context ");
    if (init_swr_context() < 0) {
        nq360_log(3, "[libavIF::write_video] init swr_context error %d:%s", error_code, error_text);
        return error_code;
    }
    nq360_log(1, "[libavIF::write_video] init audio buffer ");
    if (init_audio_fifo() < 0) {
        nq360_log(3, "[libavIF::write_video] init audio buffer error %d:%s", error_code, error_text);
        return error_code;
    }
    return 0;
}

int libavIF::open_audio_output(const char* audio_path, int bit_rate) {
    if (open_output(audio_path) < 0) {
        return error_code;
    }
    const AVOutputFormat* format = output_format->oformat;
    if (format->audio_codec == AV_CODEC_ID_NONE) {
        return fail(AVERROR(EINVAL), "a file of kind %s holds no sound", format->name);
    }
    nq360_log(1, "[libavIF::write_audio] format name : %s (%s)", format->name, format->long_name);
    nq360_log(1, "[libavIF::write_audio] format ext : %s", format->extensions ? format->extensions : "");
    sound_input = -1;
    if (add_audio_stream(sound_codec, bit_rate ? bit_rate : usual_bit_rate(sound_codec)) < 0 ||
        init_swr_context() < 0 || init_audio_fifo() < 0) {
        return error_code;
    }
    if (open_output_io() < 0) {
        return error_code;
    }
    nq360_log(1, "[libavIF::write_audio] codec id : %d", audio_codec->id);
    nq360_log(1, "[libavIF::write_audio] codec name : %s", avcodec_get_name(audio_codec->id));
    const int result = avformat_write_header(output_format, nullptr);
    nq360_log(1, "[libavIF::write_audio] header errnum : %d", result);
    return result < 0 ? fail(result) : 0;
}

int libavIF::write_audio(const char* audio_path, const char* cancel_path, int bit_rate, const ReportProgress& report) {
    nq360_log(1, "[libavIF::write_audio] begin %s %s %d", audio_path, cancel_path ? cancel_path : "", bit_rate);
    OutputCloser closer(this);
    if (open_audio_output(audio_path, bit_rate) < 0) {
        return error_code;
    }
    if (copy_sound(cancel_path, report) < 0 || write_remaining_sound() < 0) {
        return error_code;
    }
    return finish_output();
}

int libavIF::copy_sound(const char* cancel_path, const ReportProgress& report) {
    PacketPtr packet(av_packet_alloc());
    if (!packet) {
        return fail(AVERROR(ENOMEM));
    }
    int64_t count = 0;
    int interval = nq360_update_frame(0);
    const auto wants_stop = [&] {
        if (count == 0 && report) {
            const int64_t total = announced_total(input_format[0]->streams[audio_stream_index[0]], packet.get());
            interval = nq360_update_frame(total);
            if (report(NQ360_STARTED, total)) {
                return true;
            }
        }
        ++count;
        return count % interval == 0 && ((report && report(NQ360_PROGRESS, count)) || isCancelled(cancel_path));
    };
    while (true) {
        nq360_log(1, "[libavIF::write_audio] output_frame_size : %d", audio_block_size());
        const int read = read_packet(0, packet.get(), {false, true});
        if (read < 0) {
            return read == AVERROR_EOF ? 0 : fail(read);
        }
        if (packet->stream_index != audio_stream_index[0]) {
            av_packet_unref(packet.get());
            continue;
        }
        if (wants_stop()) {
            return stop();
        }
        int finished = 0;
        if (wtire_audio2(0, packet.get(), &finished, audio_block_size(), -1.0f, -1.0f) < 0) {
            return error_code;
        }
    }
}

// The last block, shorter than the others, and what the encoder holds.
int libavIF::write_remaining_sound() {
    while (av_audio_fifo_size(audio_fifo) > 0) {
        if (load_encode_write() < 0) {
            return error_code;
        }
    }
    return flush_audio_encoder();
}

int libavIF::flush_audio_encoder() {
    int got_packet = audio_encoder_context ? 1 : 0;
    while (got_packet) {
        if (encode_audio_frame(nullptr, &got_packet) < 0) {
            return error_code;
        }
    }
    return 0;
}
