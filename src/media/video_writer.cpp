// The export's writer: opens the output, runs the lockstep over both inputs, reports progress, ends the file.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include "base/files.h"
#include "base/log.h"
#include "base/saturate.h"
#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/lockstep.h"
#include "media/output_closer.h"
#include "media/output_option.h"
#include "media/pair_writer.h"
#include "media/part_plan.h"
#include "media/whole.h"
#include "projection/parallel.h"

namespace {

// Bounds of the H.264 encoder.
constexpr int kLeastMovieSide = 16;
constexpr int64_t kMostMoviePixels = 9437184;

// Sound goes straight to the file, so the muxer waits in vain for it to interleave pictures with: the pictures
// follow at once (microseconds; 0 would mean no limit at all).
constexpr int64_t kNoInterleavingDelay = 1;

bool is_movie_container(const AVOutputFormat* format) {
    return std::strcmp(format->name, "mov") == 0 || std::strcmp(format->name, "mp4") == 0 ||
           std::strcmp(format->name, "ipod") == 0;
}

bool is_picture_container(const AVOutputFormat* format) {
    return std::strcmp(format->name, "image2") == 0;
}

double seconds_of(const AVStream* stream) {
    return stream->duration == AV_NOPTS_VALUE ? std::numeric_limits<double>::infinity()
                                              : static_cast<double>(stream->duration) * av_q2d(stream->time_base);
}

// The panorama that waits is encoded while the next pair is decoded and loaded.
template <typename LoadReady>
int encode_beside_decoding(PairWriter* writer, Lockstep* lockstep, LoadReady load_ready) {
    int results[2] = {0, 0};
    in_parallel(3, [&](const cv::Range& range) {
        for (int step = range.start; step < range.end; ++step) {
            if (step == 0) {
                writer->encode();
            } else {
                results[step - 1] = lockstep->decode(step - 1);
                load_ready(step - 1);
            }
        }
    });
    return results[0] < 0 ? results[0] : results[1];
}

// One input of the lockstep, as FFmpeg reads and decodes it.
class MediaSource : public LockstepSource {
  public:
    // The sound between `start` and `end` (seconds) goes to `writer`, if it is wanted. Widened as for the pictures, an
    // end of 0 is above 0, so that the sound's steps do not take it for an open end.
    MediaSource(libavIF* media, int input, float start, float end, StreamsNeeded needed, PairWriter* writer)
        : media_(media),
          input_(input),
          start_(start - kBoundMargin),
          end_(end + kBoundMargin),
          needed_(needed),
          writer_(writer) {
        if (media->checks_pictures(input)) {
            blank_before_decoding(media->video_decoder[input]);
        }
    }

    int read() override;
    int write_sound(bool* past_end) override;
    int send() override;
    int receive(double* seconds) override;
    int miss_picture() override { return failed_to_decode(AVERROR_EOF); }

    AVFrame* frame() const { return frame_.get(); }
    const char* failed_step() const { return failed_step_; }  // null while nothing failed

  private:
    int failed(int code, const char* step) {
        failed_step_ = step;
        return code;
    }
    int failed_to_decode(int code) { return failed(code, input_ == 0 ? "decode_packet1" : "decode_packet2"); }

    libavIF* media_;
    int input_;
    float start_;
    float end_;
    StreamsNeeded needed_;
    PairWriter* writer_;
    PacketPtr packet_{new_packet()};
    FramePtr frame_{new_frame()};
    bool at_end_ = false;
    const char* failed_step_ = nullptr;
};

int MediaSource::read() {
    av_packet_unref(packet_.get());
    const int result = media_->read_packet(input_, packet_.get(), needed_);
    at_end_ = result == AVERROR_EOF;
    if (at_end_) {
        return kEndOfFile;
    }
    if (result < 0) {
        const bool cut_off = media_->looks_for_missing_parts && !media_->missing[input_].empty();
        return failed(cut_off ? media_->refuse_incomplete(input_) : result,
                      input_ == 0 ? "read_frame1" : "read_frame2");
    }
    if (packet_->stream_index == media_->video_stream_index[input_]) {
        return packet_->size > 0 ? kVideo : kOther;  // the decoder takes an empty packet for the end
    }
    return packet_->stream_index == media_->audio_stream_index[input_] ? kSound : kOther;
}

int MediaSource::write_sound(bool* past_end) {
    const int result = writer_->take_sound(input_, packet_.get(), start_, end_, past_end);
    // Only input 2's is told, as established.
    return result < 0 ? failed(result, input_ == 0 ? nullptr : "wtire_audio") : 0;
}

int MediaSource::send() {
    if (media_->last_pts[input_] < 0) {
        media_->last_pts[input_] = 0;  // the first frame's time, which each frame takes from the one before
    }
    const int result = avcodec_send_packet(media_->video_decoder[input_], at_end_ ? nullptr : packet_.get());
    av_packet_unref(packet_.get());
    return result < 0 && result != AVERROR_EOF ? failed_to_decode(result) : 0;
}

int MediaSource::receive(double* seconds) {
    const int result = receive_lagging_frame(media_->video_decoder[input_], frame_.get(), &media_->last_pts[input_]);
    if (result == AVERROR(EAGAIN)) {
        return kNeedsPacket;
    }
    if (result == AVERROR_EOF) {
        return kNoMore;
    }
    if (result < 0) {
        return failed_to_decode(result);
    }
    if (media_->checks_pictures(input_)) {
        const int rows = decoded_rows(frame_.get());
        if (rows < frame_->height) {
            media_->note_missing(input_, static_cast<double>(rows) / frame_->height, "picture");
            if (needed_.whole) {
                return failed_to_decode(media_->refuse_incomplete(input_));
            }
        }
    }
    const AVStream* stream = media_->input_format[input_]->streams[media_->video_stream_index[input_]];
    *seconds = static_cast<double>(frame_->pts) * av_q2d(stream->time_base);
    return kFrame;
}

}  // namespace

// Says before anything is written what the container or the encoder would refuse in its own words, or accept
// and make an unusable file of.
int libavIF::check_video_output(ImageSize size) {
    const bool picture = is_still[0] && is_still[1];
    const AVOutputFormat* format = output_format->oformat;
    if (picture && !is_picture_container(format)) {
        return fail(AVERROR(EINVAL), "two pictures make a JPEG picture, not a file of kind %s", format->name);
    }
    if (!picture && !is_movie_container(format)) {
        return fail(AVERROR(EINVAL), "a movie goes into a .mov or .mp4 file, not into one of kind %s", format->name);
    }
    const int64_t pixels = static_cast<int64_t>(size.width) * size.height;
    if (!picture && (size.width % 2 != 0 || size.height % 2 != 0 ||
                     std::min(size.width, size.height) < kLeastMovieSide || pixels > kMostMoviePixels)) {
        return fail(AVERROR(EINVAL),
                    "a movie has even sides of at least %d and at most %lld pixels in all, not %d x %d",
                    kLeastMovieSide, static_cast<long long>(kMostMoviePixels), size.width, size.height);
    }
    return 0;
}

int libavIF::open_video_output(const char* export_path, const OutputOption& option) {
    nq360_log(1, "[libavIF::write_video] open outputfile %s", export_path ? export_path : "");
    const bool is_share = option.share.count > 0;
    if ((is_share ? open_output_named(export_path, "mov") : open_output(export_path)) < 0) {
        nq360_log(3, "[libavIF::write_video] open outputfile error %d:%s", error_code, error_text);
        return error_code;
    }
    const AVOutputFormat* format = output_format->oformat;
    nq360_log(1, "[libavIF::write_video] format name : %s (%s)", format->name, format->long_name);
    nq360_log(1, "[libavIF::write_video] format ext : %s", format->extensions ? format->extensions : "");
    if (check_video_output(option.output_size) < 0) {
        nq360_log(3, "[libavIF::write_video] open outputfile error %d:%s", error_code, error_text);
        return error_code;
    }
    if (add_video_streams(option) < 0) {
        return error_code;
    }
    return is_share ? 0 : begin_video();
}

int libavIF::add_video_streams(const OutputOption& option) {
    const bool picture = is_still[0] && is_still[1];
    nq360_log(1, "[libavIF::write_video] codec use %s ", picture ? "AV_CODEC_ID_MJPEG" : "AV_CODEC_ID_H264");
    looks_for_missing_parts = option.looks_for_missing_parts;
    picture_quality = option.quality;
    video_bit_rate = option.bit_rate;
    sound_codec = option.sound_aac ? AV_CODEC_ID_AAC : AV_CODEC_ID_PCM_S16LE;
    if (add_sound_output(option.audio_source) < 0) {
        return error_code;
    }
    nq360_log(1, "[libavIF::write_video] add video stream ");
    if (add_video_stream(picture ? AV_CODEC_ID_MJPEG : AV_CODEC_ID_H264, option.output_size.width,
                         option.output_size.height, -1) < 0) {
        nq360_log(3, "[libavIF::write_video] add video stream error %d:%s", error_code, error_text);
        return error_code;
    }
    return 0;
}

// The output's file with its header.
int libavIF::begin_video() {
    output_format->max_interleave_delta = kNoInterleavingDelay;
    if (!(output_format->oformat->flags & AVFMT_NOFILE)) {
        nq360_log(1, "[libavIF::write_video] AV I/O open");
        if (open_output_io() < 0) {
            // The wording of the audio buffer is established for this failure too.
            nq360_log(3, "[libavIF::write_video] init audio buffer error %d:%s", error_code, error_text);
            return error_code;
        }
    }
    nq360_log(1, "[libavIF::write_video] write header");
    const int result = avformat_write_header(output_format, nullptr);
    if (result < 0) {
        fail(result);
        nq360_log(3, "[libavIF::write_video] write header error %d:%s", error_code, error_text);
    }
    return std::min(result, 0);
}

int64_t start_ticks(float start, AVRational time_base) {
    return saturated<int64_t>(
        std::floor(static_cast<double>(start * static_cast<float>(time_base.den)) / time_base.num));
}

void libavIF::seek_to_start(int which, float start) {
    if (is_still[which] || start == 0) {
        return;
    }
    const AVStream* stream = input_format[which]->streams[video_stream_index[which]];
    av_seek_frame(input_format[which], video_stream_index[which], start_ticks(start, stream->time_base),
                  AVSEEK_FLAG_BACKWARD);
    avcodec_flush_buffers(video_decoder[which]);
    if (audio_decoder[which]) {
        avcodec_flush_buffers(audio_decoder[which]);
    }
}

// Cuts the input whose sound is copied to the length of the other movie; never lengthens it.
void libavIF::equalize_lengths(OutputOption* option) const {
    const int source = option->audio_source;
    if ((source != 0 && source != 1) || !hasAudio(source) || is_still[1 - source]) {
        return;
    }
    const float starts[2] = {option->start1, option->start2};
    const float ends[2] = {option->end1, option->end2};
    double lengths[2];
    for (int i = 0; i < 2; ++i) {
        const AVStream* stream = input_format[i]->streams[video_stream_index[i]];
        lengths[i] = std::min(seconds_of(stream), static_cast<double>(ends[i])) - starts[i];
    }
    if (lengths[source] > lengths[1 - source]) {
        float* end = source == 0 ? &option->end1 : &option->end2;
        *end = static_cast<float>(starts[source] + lengths[1 - source]);
    }
}

int libavIF::write_video(const char* export_path, const char* cancel_path, OutputOption option,
                         const ReportProgress& report) {
    int64_t reported = 0;
    // Who starts over tells no lower number, but goes on asking whether to stop.
    const ReportProgress tell_highest = [&](NQ360_STATE state, int64_t frames) {
        reported = std::max(reported, frames);
        return report && report(state, reported);
    };
    bool starts_over = false;
    const bool is_share = option.share.count > 0;
    const bool in_parts = is_share || (option.workers != 0 && !(is_still[0] && is_still[1]));
    const int result = write_once(export_path, cancel_path, option, tell_highest, in_parts, &starts_over);
    if (!starts_over) {
        return result;
    }
    // Only one decoder that reads all of it can tell what the movie holds.
    starts_over = false;
    next_video_pts = audio_pts = 0;
    if (open_input_file(0) < 0 || open_input_file(1) < 0) {
        return error_code;
    }
    return write_once(export_path, cancel_path, option, tell_highest, false, &starts_over);
}

// *starts_over: nothing failed, but the parts came otherwise than planned.
int libavIF::write_once(const char* export_path, const char* cancel_path, OutputOption option,
                        const ReportProgress& report, bool in_parts, bool* starts_over) {
    OutputCloser closer(this);
    if (open_video_output(export_path, option) < 0) {
        return error_code;
    }
    nq360_log(1, "[libavIF::write_video] start loop");
    seek_to_start(0, option.start1);
    seek_to_start(1, option.start2);
    equalize_lengths(&option);
    const std::optional<PartPlan> plan = in_parts ? plan_parts(*this, option) : std::nullopt;
    if (option.share.count > 0) {
        return write_share(export_path, cancel_path, option, plan ? &*plan : nullptr, report);
    }
    const int written =
        plan ? write_parts(option, *plan, cancel_path, report, starts_over) : write_pairs(option, cancel_path, report);
    return written < 0 || *starts_over ? written : finish_video();
}

int libavIF::write_pairs(const OutputOption& option, const char* cancel_path, const ReportProgress& report) {
    PairWriter writer(this, option, !(is_still[0] && is_still[1]));
    const bool wants_sound[2] = {option.audio_source == 0 && hasAudio(0), option.audio_source == 1 && hasAudio(1)};
    const bool whole = !option.read_what_is_there;
    MediaSource source1(this, 0, option.start1, option.end1, {true, wants_sound[0], whole}, &writer);
    MediaSource source2(this, 1, option.start2, option.end2, {true, wants_sound[1], whole}, &writer);
    LockstepInput input1 = {&source1, is_still[0], option.start1, option.end1, wants_sound[0]};
    LockstepInput input2 = {&source2, is_still[1], option.start2, option.end2, wants_sound[1]};
    last_pts[0] = last_pts[1] = -1;

    Lockstep lockstep(&input1, &input2,
                      [this] { nq360_log(1, "[libavIF::write_video] output_frame_size:%d", audio_block_size()); });
    const auto load_ready = [&](int lens) {
        const bool ready = lens == 0 ? input1.frame_ready : input2.frame_ready;
        if (ready && !writer.is_loaded(lens)) {
            writer.load_and_stitch(lens, lens == 0 ? source1.frame() : source2.frame());
        }
    };
    int result = 0;
    while (result >= 0 && (result = lockstep.next_pair()) > 0) {
        const int64_t count = lockstep.count();
        const bool reports = count % option.update_frame == 0;
        const bool unwanted = reports && report && report(NQ360_PROGRESS, count);
        if (unwanted || ((reports || option.cancel_at_every_frame) && isCancelled(cancel_path))) {
            nq360_log(1, "[libavIF::write_video] cancelled");
            return stop();
        }
        load_ready(0);
        load_ready(1);
        const int queued = writer.queue_panorama(is_still[0], is_still[1]);
        if (queued < 0) {
            return report_unwritten(queued);
        }
        lockstep.pair_done();
        result = lockstep.read_packets();
        if (result < 0) {
            break;
        }
        result = encode_beside_decoding(&writer, &lockstep, load_ready);
        if (writer.write() < 0) {
            return writer.sound_failed()
                       ? report_failed_step(error_code, option.audio_source == 1 ? "wtire_audio" : nullptr)
                       : report_unwritten(error_code);
        }
    }
    if (result == 0) {
        result = lockstep.finish();
    }
    if (result < 0) {
        return report_failed_step(result, source1.failed_step() ? source1.failed_step() : source2.failed_step());
    }
    nq360_log(1, "[libavIF::write_video] loop finished %d %d", input1.ended, input2.ended);
    return next_video_pts == 0 ? fail(AVERROR_EXIT, "no pair of pictures lies in the range") : 0;
}

// The end of a job that its caller stopped. The text stays what the steps before have left, deliberately.
int libavIF::stop() {
    cancelled = true;
    return error_code = AVERROR_EXIT;
}

int libavIF::report_unwritten(int result) {
    if (error_code != result) {
        fail(result);
    }
    nq360_log(3, "[libavIF::write_video] convert_frame error %d:%s", error_code, error_text);
    return error_code;
}

int libavIF::report_failed_step(int result, const char* step) {
    if (error_code != result) {
        fail(result);
    }
    if (step) {
        nq360_log(3, "[libavIF::write_video] %s error %d:%s", step, error_code, error_text);
    }
    return error_code;
}

// What the encoders still hold.
int libavIF::finish_streams() {
    // Of PCM what is less than a block stays out, as established; an encoder of frames takes a short last one.
    const bool takes_the_rest = audio_encoder_context && sound_codec != AV_CODEC_ID_PCM_S16LE;
    if ((takes_the_rest ? write_remaining_sound() : flush_audio_encoder()) < 0) {
        return error_code;
    }
    int result = 0;
    while (video_encoder_context && (result = write_video_frame(nullptr)) == 0) {
    }
    return result < 0 ? error_code : 0;
}

int libavIF::finish_video() {
    if (finish_streams() < 0) {
        return error_code;
    }
    // Deliberately the time base as the real frame rate.
    video_stream->r_frame_rate = video_stream->time_base;
    return finish_output();
}
