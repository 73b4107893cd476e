// Writes the pairs of an export, and the sound between them, in the order of a plain loop.
//
// Writing stays on the caller's thread. Sound that is read while a panorama is still to be encoded is held until that
// is written.
#pragma once

#include <vector>

#include "media/libavif.h"
#include "media/panorama_encoder.h"

class PairWriter {
  public:
    // `option` is borrowed.
    PairWriter(libavIF* media, const OutputOption& option, bool many_pairs);

    // Any thread, at the same time for both lenses if need be.
    void load_and_stitch(int lens, const AVFrame* frame) noexcept { panoramas_.load_and_stitch(lens, frame); }
    bool is_loaded(int lens) const { return panoramas_.is_loaded(lens); }

    // Gives the stitched panorama its time; it waits to be encoded from then on. A lens that is kept stays loaded for
    // the next pair. Throws what load_and_stitch() kept.
    int queue_panorama(bool keep1, bool keep2);

    // Encodes the waiting panorama, if there is one; any thread. write() tells the result.
    void encode() noexcept { panoramas_.encode(); }

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

    int write_sound(const Sound& sound);
    bool begins_part() const;  // the pair that is queued next

    libavIF* media_;
    const OutputOption& option_;
    const bool in_parts_;
    CodecPtr encoder_;  // of the second part and those behind it, which depend on nothing before them
    PanoramaEncoder panoramas_;

    std::vector<Sound> held_;
    size_t held_bytes_ = 0;
    int sound_past_end_ = 0;
    bool sound_failed_ = false;
};
