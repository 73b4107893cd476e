// libavIF: everything one job does with FFmpeg. One object holds one or two inputs and at most one output.
//
// Operations return 0 or more for success and a negative FFmpeg code for a failure, which is also left in
// error_code with a text in error_text. An object is used by one thread at a time; objects are independent.
// Wherever `which` chooses an input, 0 is the first and any other value the second.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <cstdint>
#include <string>

#include "base/progress.h"
#include "media/output_file.h"
#include "projection/image_frame.h"

class ShareWriter;
struct OutputOption;
struct PartPlan;
struct ShareHeader;
struct ShareSet;

// The streams of an input that a job needs, besides what it happens to read.
struct StreamsNeeded {
    bool video = false;
    bool sound = false;
    bool whole = true;  // it is an error when one of them is cut off, and not only noted in `missing`
};

// What the streams of an output are made with, beside what is the same for all outputs.
struct VideoSettings {
    AVCodecID codec;
    int width;
    int height;
    int64_t bit_rate;
    AVRational frame_time;   // of the encoder's ticks
    AVRational stream_time;  // of the stream's
};
struct SoundSettings {
    AVCodecID codec;
    int sample_rate;
    int64_t bit_rate;
};

class libavIF {
  public:
    // The paths are borrowed and must outlive the object.
    explicit libavIF(const char* path);
    libavIF(const char* path1, const char* path2);
    ~libavIF();
    libavIF(const libavIF&) = delete;
    libavIF& operator=(const libavIF&) = delete;

    // --- input ---

    // Opens an input with its video decoder and, if it has sound, its audio decoder. width, height, duration,
    // frame_count and audio_codec_id describe the input opened last. A failure closes both inputs.
    int open_input_file(int which);
    void close_input_file();

    bool hasAudio(int which) const { return audio_stream_index[which ? 1 : 0] != -1; }

    // Reads the next packet, of any stream. `needed` are the kinds of streams that the job cannot do without:
    // AVERROR_EOF says that these were read to their end, AVERROR_INVALIDDATA that the file was cut off before.
    int read_packet(int which, AVPacket* packet, StreamsNeeded needed);

    // Whether the input's pictures are to be looked at for parts that the decoder had to make up. Motion JPEG alone is
    // decoded whatever is missing; what follows a damage is left out.
    bool checks_pictures(int which) const {
        return looks_for_missing_parts && video_decoder[which ? 1 : 0]->codec_id == AV_CODEC_ID_MJPEG;
    }

    // Leaves in `missing` that only this share of the movie or picture could be read.
    void note_missing(int input, double share, const char* what);

    // Fails in the words of `missing`.
    int refuse_incomplete(int input);

    // Decodes one packet of the input, an empty one to drain. Always uses the packet up: returns its size, also
    // for packets of other streams. A frame that came out carries its best-effort time in pts.
    int decode_packet(int which, AVPacket packet, AVFrame* frame, int* got_frame);

    // Decodes the first picture of input 0 into a new frame that the caller frees, whatever the result. At the
    // end of the file the result is 0 even when no picture came: the frame is empty then.
    int get_frame(AVFrame** frame);

    // Frames of 1001 ticks between two times in seconds, the end held to the stream's own count.
    int64_t duration_frame_count(int which, float start, float end);

    // --- thumbnail ---

    // Writes the first picture of input 0 to `path`, `width` pixels wide (0: as wide as the input, which is
    // also the most), turned as the EXIF orientation says.
    int write_tuhmbnail(const char* path, int width, int orientation);

    // Decodes the first picture of input 0, which is a JPEG's only one, and leaves in `missing` what is not there.
    void look_for_missing_rows();

    // Makes the scaler from input 0's decoded pictures to the output's. Always returns 0.
    int init_sws_context();

    // Copies a 4:2:0 picture turned by an EXIF orientation; src and dst have the same size and strides.
    void rotate_frame(AVFrame* src, AVFrame* dst, int orientation);

    // --- output ---

    // Adds the video stream and opens its encoder. `source` chooses the input whose bit rate and time base are
    // followed: 0, 1, or any other value for the input of the longer container duration.
    int add_video_stream(AVCodecID codec_id, int width, int height, int source);
    // The same with settings that are known.
    int open_video_stream(const VideoSettings& settings);

    // Encodes and writes a frame. A null frame flushes: 0 while packets come, 1 when there are no more.
    int write_video_frame(AVFrame* frame);

    // Writes what encode_video_frame gave: 1 when it was a packet, 0 when there was none.
    int write_video_packet(int encode_result, AVPacket* packet);

    // Writes the end of the file and closes it; 0 says that all of it was written.
    int finish_output();

    // Releases the output side; safe to call more than once.
    void close_output_file();

    // Writes the panorama of both inputs to `export_path`: the whole job of an export. AVERROR_EXIT with `cancelled`
    // set when the marker was seen or `report` wanted it to stop.
    int write_video(const char* export_path, const char* cancel_path, OutputOption option,
                    const ReportProgress& report);

    // Writes the movie whose shares were made apart, without its metadata. Throws a ShareFault for one that cannot be
    // joined.
    int write_joined(const char* export_path, const char* cancel_path, const ShareSet& shares,
                     const ReportProgress& report);

    // --- sound ---

    // Writes the sound of input 0 alone, as 16-bit stereo PCM, its progress counted in packets. AVERROR_EXIT with
    // `cancelled` set when the marker was seen or `report` wanted it to stop. bit_rate 0: the source's.
    int write_audio(const char* audio_path, const char* cancel_path, int bit_rate, const ReportProgress& report);

    // The steps of the sound: the output stream with its encoder, the resampler to it, and the samples' queue.
    int add_audio_stream(AVCodecID codec_id, int bit_rate);
    int open_sound_stream(const SoundSettings& settings);
    int init_swr_context();
    int init_audio_fifo();

    // Decodes a packet of the input's sound and queues what begins within `start` to `end` seconds (0 or less:
    // open); sets *finished at sound behind the end. Returns the samples queued.
    int read_decode_stroe(int input, AVPacket* packet, int* finished, float start, float end);

    // Encodes and writes one block of the queue, at most the encoder's frame size.
    int load_encode_write();

    // Encodes and writes a block; a null frame flushes.
    int encode_audio_frame(AVFrame* frame, int* got_packet);

    // The export's step for one packet: queues it and writes every full block, and then, once *finished, the rest. What
    // is less than a block from the start stays in the queue, deliberately also when *finished. A failure closes the
    // output. The packet is unreferenced.
    int wtire_audio2(int input, AVPacket* packet, int* finished, int frame_size, float start, float end);

    // Samples in a block: the encoder's frame size, or 1000 where it has none.
    int audio_block_size() const;

    // --- kept for their users; the library itself never calls them ---

    bool hasVideo(int which) const { return video_stream_index[which ? 1 : 0] != -1; }

    // Takes the next frame from the decoder. Deliberately each frame carries the time of the one before it, as
    // last_pts keeps it; the export's range is defined by these times.
    int receive_frame_from_openh264(int which, AVFrame* frame, int* got_frame);

    // Stitches one pair of decoded frames and encodes the result at the next time stamp. Throws a text when a
    // frame is not what the tables were built for.
    int convert_frame(AVFrame* frame1, AVFrame* frame2, const OutputOption& option);

    // --- fields: what the steps above leave for each other ---

    double duration;  // seconds of the video stream; -1.0 when unknown
    int32_t width;    // of the picture, not of the padded coded size
    int32_t height;
    int64_t frame_count;  // as the container tells; 0 when it does not
    int64_t last_pts[2];  // time of the last frame taken from each decoder
    AVCodecID audio_codec_id;
    int32_t error_code;
    char error_text[255];
    bool cancelled;
    const char* input_path[2];
    std::string input_name[2];  // escaped for replies; kept for its users
    AVFormatContext* input_format[2];
    AVCodecContext* video_decoder[2];
    AVCodecContext* audio_decoder[2];
    int32_t video_stream_index[2];  // -1: none
    int32_t audio_stream_index[2];
    bool is_still[2];  // the container counts no frames, as for a picture

    AVFormatContext* output_format;
    const AVCodec* video_codec;
    AVCodecContext* audio_encoder_context;
    const AVCodec* audio_codec;
    AVStream* video_stream;
    SwsContext* sws_context;
    AVStream* audio_stream;
    AVFrame* audio_frame;
    SwrContext* swr_context;
    AVAudioFifo* audio_fifo;
    int64_t audio_pts;  // samples

    AVCodecContext* video_encoder_context;
    int64_t next_video_pts;   // ticks of 1/1001 of a frame
    const char* output_path;  // where the muxer's file goes, whatever name it makes up; borrowed
    OutputFile output_file;
    bool looks_for_missing_parts;  // of pictures, which are decoded whatever is missing
    std::string missing[2];        // what an input that is not whole has; empty of a whole one
    int picture_quality;           // 1 to 100; 0: the encoder's own choice
    int64_t video_bit_rate;        // bits per second; 0: as of the inputs
    AVCodecID sound_codec;         // of the sound that is written: PCM unless set otherwise
    int sound_input;               // whose sound is to be written: 0, 1, or -1 for the first that has any
    ShareWriter* share_file;       // where packets go in the place of the output's own file; borrowed, mostly null
    bool quick_thumbnail;          // made of a picture that is decoded no finer than it needs, where that is possible

  private:
    // What the resampler reads. The decoder's own fields follow its stream, which may change.
    struct SoundFormat {
        int channels;
        AVSampleFormat format;
        int rate;
    };

    // Leaves FFmpeg's text for `code`, and the code, and returns it.
    int fail(int code);
    // The same with a text of our own.
    int fail(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));

    int open_video_decoder(const AVStream* stream, AVCodecContext** decoder);
    int reopen_video_decoder(int halvings);
    int open_audio_decoder(const AVStream* stream, AVCodecContext** decoder);
    int check_end(int input, StreamsNeeded needed);
    int decode_first_picture(AVFrame* frame, bool* found);

    // The container is guessed from the path, or has the format's name.
    int open_output(const char* path);
    int open_output_named(const char* path, const char* format);
    int open_output_io();
    int close_output_io();
    int source_of_longer_duration() const;

    struct Thumbnail {
        const char* path;
        int width;
        int height;
        int orientation;
    };
    int write_thumbnail_file(const Thumbnail& thumbnail, int halvings);
    int write_thumbnail_stream(const Thumbnail& thumbnail, int halvings);
    int write_first_picture(int orientation);
    int decode_and_check(AVFrame* frame);

    int open_video_output(const char* export_path, const OutputOption& option);
    int add_video_streams(const OutputOption& option);
    int begin_video();
    int check_video_output(ImageSize size);
    void seek_to_start(int which, float start);
    void equalize_lengths(OutputOption* option) const;
    int write_pairs(const OutputOption& option, const char* cancel_path, const ReportProgress& report);
    int write_once(const char* export_path, const char* cancel_path, OutputOption option, const ReportProgress& report,
                   bool in_parts, bool* starts_over);
    int write_parts(const OutputOption& option, const PartPlan& plan, const char* cancel_path,
                    const ReportProgress& report, bool* starts_over);
    int write_share(const char* export_path, const char* cancel_path, const OutputOption& option, const PartPlan* plan,
                    const ReportProgress& report);
    ShareHeader share_header(const OutputOption& option, const PartPlan* plan) const;
    int join_streams(const ShareSet& shares);
    int join_packets(const ShareSet& shares, const char* cancel_path, const ReportProgress& report);
    int write_sound_packet(AVPacket* packet);
    int stop();
    int report_unwritten(int result);
    int report_failed_step(int result, const char* step);
    int finish_streams();
    int finish_video();

    int sound_source() const;
    int open_audio_output(const char* audio_path, int bit_rate);
    int add_sound_output(int audio_source);
    int store_samples(const AVFrame* frame);
    int copy_sound(const char* cancel_path, const ReportProgress& report);
    int write_remaining_sound();
    int flush_audio_encoder();

    SoundFormat resampled;
};

// The instant, in ticks of the time base, to which an export that begins at `start` seconds seeks.
int64_t start_ticks(float start, AVRational time_base);

// Takes the decoder's next frame, as receive_frame_from_openh264 does: its pts is *last_pts, which becomes the
// frame's own time. Returns FFmpeg's code. May run beside the other input's.
int receive_lagging_frame(AVCodecContext* decoder, AVFrame* frame, int64_t* last_pts);

// Encodes a frame, or flushes with null: 1 when `packet` was filled, 0 when nothing came, or FFmpeg's error. Any
// thread, one at a time.
int encode_video_frame(AVCodecContext* encoder, const AVFrame* frame, AVPacket* packet);

// Orientation kernels on one plane: source byte (r, c), r < rows and c < width, goes to the index given; both
// planes have `linesize` bytes a row and `rows` rows. What would land outside is dropped.
void rotate_data0(uint8_t* src, uint8_t* dst, int linesize, int rows);               // whole rows, as they are
void rotate_data90(uint8_t* src, uint8_t* dst, int linesize, int width, int rows);   // row c, column width-1-r
void rotate_data180(uint8_t* src, uint8_t* dst, int linesize, int width, int rows);  // row rows-1-r, column width-1-c
void rotate_data270(uint8_t* src, uint8_t* dst, int linesize, int width, int rows);  // row width-1-c, column r
uint8_t* mirror_horizontal(uint8_t* src, uint8_t* dst, int linesize, int rows);  // whole rows, bottom up; returns src
void mirror_vertical(uint8_t* src, uint8_t* dst, int linesize, int width, int rows);  // row r, column width-1-c

// --- Kept for their users; the library itself never calls them ---

// The new frame borrows the picture's planes, which must outlive it; the caller frees the frame. Null when
// there is no memory for it.
AVFrame* avframe_from_iamgeframe(ImageFrame frame);

// A scaler between the sizes of two frames that reads the source as 4:2:2; the caller frees it.
SwsContext* init_sws_context2(SwsContext** ctx, AVFrame* src, AVFrame* dst);
