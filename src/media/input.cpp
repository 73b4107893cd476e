// Opening and decoding the inputs.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <vector>

#include <sys/stat.h>

extern "C" {
#include <libavutil/avstring.h>
}

#include "base/files.h"
#include "base/saturate.h"
#include "base/text.h"
#include "media/ffmpeg_ptr.h"
#include "media/frame_ticks.h"
#include "media/libavif.h"
#include "media/whole.h"

namespace {

int index_of(int which) {
    return which ? 1 : 0;
}

// Why a path cannot be an input: a pipe or a device would block for ever.
int not_a_file(const char* path) {
    struct stat status;
    if (!path || stat(path, &status) != 0) {
        return AVERROR(ENOENT);
    }
    return S_ISDIR(status.st_mode) ? AVERROR(EISDIR) : AVERROR(EINVAL);
}

// Whatever name the demuxer makes up (it cuts long ones) or the file refers to: only the input is opened. FFmpeg
// calls this, and an exception on its way through C would leak all that FFmpeg holds.
int open_input_only(AVFormatContext* input, AVIOContext** io, const char* /*url*/, int flags, AVDictionary** options) {
    char* url = av_asprintf("file:%s", static_cast<const char*>(input->opaque));
    if (!url) {
        return AVERROR(ENOMEM);
    }
    const int result = avio_open2(io, url, flags, &input->interrupt_callback, options);
    av_free(url);
    return result;
}

int open_demuxer(const char* path, InputPtr* input) {
    if (!isRegularFile(path)) {
        return not_a_file(path);
    }
    const std::string url = file_url(path);  // may throw, so before FFmpeg's objects
    AVFormatContext* context = avformat_alloc_context();
    if (!context) {
        return AVERROR(ENOMEM);
    }
    context->opaque = const_cast<char*>(path);
    context->io_open = open_input_only;
    // Pictures are single files: neither '%' nor '*' in a name is a pattern.
    AVDictionary* options = nullptr;
    int result = av_dict_set(&options, "pattern_type", "none", 0);
    if (result < 0) {
        avformat_free_context(context);
        return result;
    }
    result = avformat_open_input(&context, url.c_str(), nullptr, &options);
    av_dict_free(&options);
    input->reset(result < 0 ? nullptr : context);  // freed by FFmpeg on failure
    return result;
}

// FFmpeg looks into the streams with decoders of its own, which are to be as quiet as ours.
int find_streams(AVFormatContext* input) {
    std::vector<AVDictionary*> options(input->nb_streams, nullptr);
    for (AVDictionary*& of_stream : options) {
        av_dict_set_int(&of_stream, "log_level_offset", kErrorsOnly, 0);
    }
    const int result = avformat_find_stream_info(input, options.data());
    for (AVDictionary*& of_stream : options) {
        av_dict_free(&of_stream);
    }
    return result;
}

// `halvings`: how often its pictures are to be halved in size; not every decoder can.
int open_decoder(const AVStream* stream, const AVCodec* codec, CodecPtr* decoder, int halvings = 0) {
    decoder->reset(avcodec_alloc_context3(codec));
    if (!*decoder) {
        return AVERROR(ENOMEM);
    }
    const int result = avcodec_parameters_to_context(decoder->get(), stream->codecpar);
    if (result < 0) {
        return result;
    }
    (*decoder)->pkt_timebase = stream->time_base;
    (*decoder)->log_level_offset = kErrorsOnly;
    (*decoder)->lowres = halvings;
    return avcodec_open2(decoder->get(), codec, nullptr);
}

const AVCodec* find_video_decoder(AVCodecID id) {
    return id == AV_CODEC_ID_H264 ? avcodec_find_decoder_by_name("libopenh264") : avcodec_find_decoder(id);
}

double stream_seconds(const AVStream* stream) {
    if (stream->duration == AV_NOPTS_VALUE || stream->time_base.den == 0) {
        return -1.0;
    }
    return static_cast<double>(stream->time_base.num) / stream->time_base.den * static_cast<double>(stream->duration);
}

// The demuxer takes a packet behind the file's end for the end of all streams. It reads the others on once it leaves
// out the one that breaks off. Whether there was one to leave out.
bool leave_out_if_cut_off(const AVFormatContext* input, int stream_index) {
    AVStream* stream = input->streams[stream_index];
    if (stream->discard == AVDISCARD_ALL || share_there(input, stream_index) == 1) {
        return false;
    }
    stream->discard = AVDISCARD_ALL;
    return true;
}

// Frames in `seconds`, in single precision throughout.
int64_t frames_in(float seconds, AVRational time_base) {
    return saturated<int32_t>(seconds * static_cast<float>(time_base.den) / static_cast<float>(time_base.num) /
                              static_cast<float>(kFrameTicks));
}

}  // namespace

libavIF::libavIF(const char* path) : libavIF(path, nullptr) {}

libavIF::libavIF(const char* path1, const char* path2)
    : duration(-1.0),
      width(0),
      height(0),
      frame_count(0),
      last_pts{-1, -1},
      audio_codec_id(AV_CODEC_ID_NONE),
      error_code(0),
      error_text{},
      cancelled(false),
      input_path{path1, path2},
      input_name{path1 ? path1 : "", path2 ? path2 : ""},
      input_format{},
      video_decoder{},
      audio_decoder{},
      video_stream_index{-1, -1},
      audio_stream_index{-1, -1},
      is_still{false, false},
      output_format(nullptr),
      video_codec(nullptr),
      audio_encoder_context(nullptr),
      audio_codec(nullptr),
      video_stream(nullptr),
      sws_context(nullptr),
      audio_stream(nullptr),
      audio_frame(nullptr),
      swr_context(nullptr),
      audio_fifo(nullptr),
      audio_pts(0),
      video_encoder_context(nullptr),
      next_video_pts(0),
      output_path(nullptr),
      looks_for_missing_parts(false),
      picture_quality(0),
      video_bit_rate(0),
      sound_codec(AV_CODEC_ID_PCM_S16LE),
      sound_input(-1),
      share_file(nullptr),
      quick_thumbnail(false),
      resampled{0, AV_SAMPLE_FMT_NONE, 0} {
    replace_string(input_name[0]);
    replace_string(input_name[1]);
}

libavIF::~libavIF() {
    close_input_file();
    close_output_file();
}

int libavIF::fail(int code) {
    error_code = code;
    av_strerror(code, error_text, sizeof(error_text));
    return code;
}

int libavIF::fail(int code, const char* format, ...) {
    error_code = code;
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(error_text, sizeof(error_text), format, arguments);
    va_end(arguments);
    return code;
}

int libavIF::open_input_file(int which) {
    const int i = index_of(which);
    InputPtr input;
    error_code = open_demuxer(input_path[i], &input);
    if (error_code < 0) {
        return fail(error_code);
    }
    error_code = find_streams(input.get());
    if (error_code < 0) {
        close_input_file();
        return fail(error_code);
    }
    const int video = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (video < 0) {
        close_input_file();
        return fail(AVERROR_EXIT, "Not Found Video Stream");
    }
    const int audio = av_find_best_stream(input.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    if (audio < 0 && audio != AVERROR_STREAM_NOT_FOUND) {
        close_input_file();
        return fail(AVERROR_EXIT, "Not Found Audio Stream");
    }
    const AVStream* stream = input->streams[video];
    AVCodecContext* decoder = nullptr;
    AVCodecContext* sound_decoder = nullptr;
    if (open_video_decoder(stream, &decoder) < 0) {
        return error_code;
    }
    CodecPtr decoder_owner(decoder);
    if (audio >= 0 && open_audio_decoder(input->streams[audio], &sound_decoder) < 0) {
        return error_code;
    }
    width = decoder->width;
    height = decoder->height;
    frame_count = stream->nb_frames;
    duration = stream_seconds(stream);

    avformat_close_input(&input_format[i]);
    avcodec_free_context(&video_decoder[i]);
    avcodec_free_context(&audio_decoder[i]);
    is_still[i] = stream->nb_frames == 0;
    video_stream_index[i] = video;
    audio_stream_index[i] = audio >= 0 ? audio : -1;
    input_format[i] = input.release();
    video_decoder[i] = decoder_owner.release();
    audio_decoder[i] = sound_decoder;
    return 0;
}

int libavIF::open_video_decoder(const AVStream* stream, AVCodecContext** decoder) {
    const AVCodec* codec = find_video_decoder(stream->codecpar->codec_id);
    if (!codec) {
        close_input_file();
        return fail(AVERROR_EXIT, "Not Found Video Codec");
    }
    CodecPtr owner;
    error_code = open_decoder(stream, codec, &owner);
    if (error_code < 0) {
        close_input_file();
        return fail(error_code);
    }
    *decoder = owner.release();
    return 0;
}

int libavIF::reopen_video_decoder(int halvings) {
    CodecPtr owner;
    const AVStream* stream = input_format[0]->streams[video_stream_index[0]];
    error_code = open_decoder(stream, video_decoder[0]->codec, &owner, halvings);
    if (error_code < 0) {
        return fail(error_code);
    }
    avcodec_free_context(&video_decoder[0]);
    video_decoder[0] = owner.release();
    return 0;
}

int libavIF::open_audio_decoder(const AVStream* stream, AVCodecContext** decoder) {
    CodecPtr owner;
    error_code = open_decoder(stream, avcodec_find_decoder(stream->codecpar->codec_id), &owner);
    if (error_code < 0) {
        close_input_file();
        return fail(error_code);
    }
    audio_codec_id = stream->codecpar->codec_id;
    *decoder = owner.release();
    return 0;
}

void libavIF::close_input_file() {
    for (int i = 0; i < 2; ++i) {
        avcodec_free_context(&video_decoder[i]);
        avcodec_free_context(&audio_decoder[i]);
        avformat_close_input(&input_format[i]);
    }
}

int libavIF::read_packet(int which, AVPacket* packet, StreamsNeeded needed) {
    const int i = index_of(which);
    AVFormatContext* input = input_format[i];
    const auto is_needed = [&] {
        return (needed.video && packet->stream_index == video_stream_index[i]) ||
               (needed.sound && packet->stream_index == audio_stream_index[i]);
    };
    // A needed packet in which the file breaks off is the end, as where it breaks off between two.
    const auto read = [&] {
        const int result = av_read_frame(input, packet);
        const bool breaks_off = result >= 0 && (packet->flags & AV_PKT_FLAG_CORRUPT) && is_needed() &&
                                share_there(input, packet->stream_index) < 1;
        return breaks_off ? AVERROR_EOF : result;
    };
    int result = read();
    if (result == AVERROR_EOF) {
        result = check_end(i, needed);
    }
    for (unsigned stream = 0; result == AVERROR_EOF && stream < input->nb_streams; ++stream) {
        if (leave_out_if_cut_off(input, static_cast<int>(stream))) {
            av_packet_unref(packet);
            result = read();
        }
    }
    if (result >= 0) {
        if (input->pb && input->pb->error < 0) {
            result = input->pb->error;  // the demuxer of pictures takes what it could read for the whole file
        } else if (is_needed() && (packet->flags & AV_PKT_FLAG_CORRUPT)) {
            result = AVERROR_INVALIDDATA;
        }
    }
    if (result < 0) {
        av_packet_unref(packet);
    }
    return result;
}

// What the end of an input says: AVERROR_EOF, or that a stream which is needed goes on behind the file's end.
int libavIF::check_end(int input, StreamsNeeded needed) {
    const double video = needed.video ? share_there(input_format[input], video_stream_index[input]) : 1;
    const double sound = needed.sound ? share_there(input_format[input], audio_stream_index[input]) : 1;
    const double share = std::min(video, sound);
    if (share == 1) {
        return AVERROR_EOF;
    }
    note_missing(input, share, "movie");
    return needed.whole ? AVERROR_INVALIDDATA : AVERROR_EOF;
}

int libavIF::refuse_incomplete(int input) {
    return fail(AVERROR_INVALIDDATA, "input %d is not whole: %s", input + 1, missing[input].c_str());
}

void libavIF::note_missing(int input, double share, const char* what) {
    const int percent = std::min(static_cast<int>(share * 100), 99);
    missing[input] = std::to_string(percent) + " % of the " + what + " is there";
}

int libavIF::decode_packet(int which, AVPacket packet, AVFrame* frame, int* got_frame) {
    const int i = index_of(which);
    *got_frame = 0;
    if (packet.stream_index != video_stream_index[i]) {
        return packet.size;
    }
    int result = avcodec_send_packet(video_decoder[i], packet.size > 0 ? &packet : nullptr);
    if (result < 0 && result != AVERROR_EOF) {  // told the end before: frames may still come
        return fail(result);
    }
    result = avcodec_receive_frame(video_decoder[i], frame);
    if (result < 0 && result != AVERROR(EAGAIN) && result != AVERROR_EOF) {
        return fail(result);
    }
    error_code = 0;
    if (result >= 0) {
        *got_frame = 1;
        frame->pts = frame->best_effort_timestamp;
    }
    return packet.size;
}

int libavIF::get_frame(AVFrame** frame) {
    *frame = av_frame_alloc();
    if (!*frame) {
        return fail(AVERROR(ENOMEM));
    }
    bool found = false;
    return decode_first_picture(*frame, &found);
}

int libavIF::decode_first_picture(AVFrame* frame, bool* found) {
    PacketPtr packet(av_packet_alloc());
    if (!packet) {
        return fail(AVERROR(ENOMEM));
    }
    int got_frame = 0;
    int result = 0;
    while (!got_frame && (result = read_packet(0, packet.get(), {})) >= 0) {
        // An empty packet would tell the decoder the end.
        result = packet->size > 0 ? decode_packet(0, *packet, frame, &got_frame) : 0;
        av_packet_unref(packet.get());
        if (result < 0) {
            return result;
        }
    }
    if (!got_frame && result != AVERROR_EOF) {
        return fail(result);
    }
    if (!got_frame) {
        // The decoder may hold the only picture back until it is told the end.
        packet->stream_index = video_stream_index[0];
        decode_packet(0, *packet, frame, &got_frame);
    }
    *found = got_frame != 0;
    return 0;
}

int libavIF::receive_frame_from_openh264(int which, AVFrame* frame, int* got_frame) {
    const int i = index_of(which);
    *got_frame = 0;
    error_code = receive_lagging_frame(video_decoder[i], frame, &last_pts[i]);
    if (error_code < 0) {
        return fail(error_code);
    }
    *got_frame = 1;
    return 0;
}

int receive_lagging_frame(AVCodecContext* decoder, AVFrame* frame, int64_t* last_pts) {
    const int result = avcodec_receive_frame(decoder, frame);
    if (result < 0) {
        return result;
    }
    frame->pts = *last_pts;
    *last_pts = frame->best_effort_timestamp;
    return 0;
}

int64_t libavIF::duration_frame_count(int which, float start, float end) {
    const int i = index_of(which);
    const AVStream* stream = input_format[i]->streams[video_stream_index[i]];
    const int64_t start_frames = frames_in(start, stream->time_base);
    int64_t end_frames = frames_in(end, stream->time_base);
    // Unsigned, so that a negative end is held to the stream's count too; deliberate.
    if (static_cast<uint64_t>(end_frames) > static_cast<uint64_t>(stream->nb_frames)) {
        end_frames = stream->nb_frames;
    }
    return end_frames - start_frames;
}
