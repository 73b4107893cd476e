// Turns the pairs of an export into written packets, so that the slow steps can overlap.
//
// The lenses of a pair are loaded, at the same time if need be, and whoever loads the second one stitches the pair;
// the panorama is queued, encoded and written. While one panorama is encoded, the next pair may be decoded, loaded and
// stitched. Writing stays on the caller's thread and in the order of a plain loop: sound that is read while a
// panorama is still to be written is held until it is.
#pragma once

#include <atomic>
#include <exception>
#include <vector>

#include "media/libavif.h"
#include "media/stitcher.h"

class PairWriter {
  public:
    // `option` is borrowed.
    PairWriter(libavIF* media, const OutputOption& option, bool many_pairs);

    // Takes over a lens's frame (0 or 1); the lens that comes second stitches the pair. Any thread. What
    // is thrown is kept for queue_panorama().
    void load_and_stitch(int lens, const AVFrame* frame) noexcept;
    bool is_loaded(int lens) const { return loaded_[lens]; }

    // Gives the stitched panorama its time; it waits to be encoded from then on. A lens that is kept stays loaded for
    // the next pair. Throws what load_and_stitch() kept.
    int queue_panorama(bool keep1, bool keep2);

    // Encodes the waiting panorama, if there is one; any thread. write() tells the result.
    void encode() noexcept;

    // Writes what encode() made, then the sound that was held. The caller's thread. After a failure sound_failed()
    // tells which of the two failed.
    int write();
    bool sound_failed() const { return sound_failed_; }

    // Writes a packet of an input's sound, or holds it while a panorama waits. *past_end tells whether sound
    // behind the range was met among what was written.
    int take_sound(int input, AVPacket* packet, float start, float end, bool* past_end);

  private:
    struct Sound {
        int input;
        PacketPtr packet;
        float start;
        float end;
    };

    bool prepare_panorama();
    int write_sound(const Sound& sound);

    libavIF* media_;
    Stitcher stitcher_;
    FramePtr panoramas_[2];  // one is encoded while the other is stitched
    int stitching_ = 0;
    PacketPtr encoded_{new_packet()};
    int encode_result_ = 0;
    bool waiting_ = false;

    bool loaded_[2] = {false, false};
    std::atomic<int> lenses_loaded_{0};
    std::exception_ptr thrown_[2];

    std::vector<Sound> held_;
    size_t held_bytes_ = 0;
    int sound_past_end_ = 0;
    bool sound_failed_ = false;
};
