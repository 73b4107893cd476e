// Which frames of two inputs are stitched together, apart from how they are read and decoded.
//
// Both inputs are read in turn: each up to its next video packet, sound going to the writer as it is met; then
// both decoders take their packet and may deliver a frame. Frames before an input's start are dropped, the first
// one after its end ends it. When both inputs have a frame the pair is complete. A still's only frame stays and
// goes with every frame of the movie.
//
// Decoders hold back none, one or two frames; only telling them the end brings these out. So each is asked first,
// gets its packet when it has no frame yet, and is asked again; at the end of the file it is told so and asked on
// until it says that it has no more.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

// Seconds by which a range is widened on both sides, so that a frame exactly on a bound is inside. Times are compared
// in single precision, in which so little is lost from 0.25 s up: there a frame on a bound has the very number of the
// bound.
constexpr float kBoundMargin = 1e-8f;

// What the lockstep needs of an input's demuxer and decoder. Results below 0 are FFmpeg's error codes.
class LockstepSource {
  public:
    enum Packet { kVideo, kSound, kOther, kEndOfFile };
    enum Frame { kFrame, kNeedsPacket, kNoMore };

    virtual ~LockstepSource() = default;
    virtual int read() = 0;                       // a Packet: the next one of the file, which the source keeps
    virtual int write_sound(bool* past_end) = 0;  // the sound packet read last; whether it lies past the range
    virtual int send() = 0;                       // hands the video packet read last, or the end, to the decoder
    virtual int receive(double* seconds) = 0;     // a Frame, and its time
    virtual int miss_picture() = 0;               // the error of a still whose file holds no picture
};

// One input: its flags, and the steps that change them.
struct LockstepInput {
    LockstepSource* source = nullptr;
    bool still = false;
    float start = 0;  // seconds
    float end = 0;
    bool wants_sound = false;  // the input whose sound is copied, until the sound is done

    bool frame_ready = false;
    bool ended = false;        // no frame comes any more: end of file, or one past the range; at last of both movies
    bool packet_read = false;  // a packet, or the end, waits to be sent
    bool at_end_of_file = false;
    int64_t frames = 0;  // frames that became ready

    bool wants_frame() const { return !frame_ready && !ended; }

    bool needs_packet() const { return wants_frame() && !packet_read && !at_end_of_file; }
    int read_packet();              // the next packet of the file; on the caller's thread
    int decode();                   // sends it and takes what comes; may run beside the other input's
    bool needs_reading_on() const;  // after the last pair: for the sound behind it, or to see whether a still goes on
    void take_frame() { frame_ready = still; }

  private:
    void judge(double seconds);
};

class Lockstep {
  public:
    // `begin_pass`, which may be empty, is called on the caller's thread before each round of reading, in which each
    // input that needs a packet reads one.
    Lockstep(LockstepInput* input1, LockstepInput* input2, std::function<void()> begin_pass)
        : inputs_{input1, input2}, begin_pass_(std::move(begin_pass)) {}

    // Advances both inputs to their next pair. 1: both frames are ready; 0: there is no further pair.
    int next_pair();

    // The two steps that next_pair repeats, for a caller who has other work for the decoders' time: read for both
    // inputs, then decode each (0 or 1), side by side if need be. next_pair completes what they began.
    int read_packets();
    int decode(int input) { return inputs_[input]->decode(); }

    // To be called once the pair has been used.
    void pair_done();

    // After the last pair: the sound that lies behind it, and whether more pictures follow a still's.
    int finish();

    // The number of the pair that is ready, counted from 1.
    int64_t count() const;

  private:
    void begin_pass() const;
    bool can_pair() const;
    int decode_both();

    LockstepInput* inputs_[2];
    std::function<void()> begin_pass_;
    bool done_ = false;
};
