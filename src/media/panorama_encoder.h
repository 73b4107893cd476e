// Turns the pairs of an export into encoded panoramas, so that the slow steps can overlap: while one panorama is
// encoded, the next pair may be decoded, loaded and stitched.
#pragma once

#include <atomic>
#include <exception>
#include <memory>

#include "media/ffmpeg_ptr.h"
#include "media/stitcher.h"

class PanoramaEncoder {
  public:
    // `option` and `encoder` are borrowed.
    PanoramaEncoder(const OutputOption& option, std::shared_ptr<const StitchTables> tables, AVCodecContext* encoder);

    // Takes over a lens's frame (0 or 1), at the same time as the other's if need be; the lens that comes second
    // stitches the pair. Any thread. What is thrown is kept for queue().
    void load_and_stitch(int lens, const AVFrame* frame) noexcept;
    bool is_loaded(int lens) const { return loaded_[lens]; }

    // The stitched panorama waits to be encoded, with this time. A lens that is kept stays loaded for the next pair.
    // Throws what load_and_stitch() kept.
    int queue(int64_t pts, bool keep1, bool keep2);
    bool is_waiting() const { return waiting_; }

    // Encodes the waiting panorama, if there is one; any thread.
    void encode() noexcept;

    // To be called once the panorama was encoded: 1 when packet() was filled, 0 when nothing came, or FFmpeg's error.
    int take_result();
    AVPacket* packet() const { return encoded_.get(); }

    // What is loaded next is stitched as if no pair had been before.
    void stitch_anew() { stitcher_.forget(); }
    // What is queued next is encoded by this one, which is borrowed.
    void set_encoder(AVCodecContext* encoder) { encoder_ = encoder; }

  private:
    bool prepare_panorama();

    AVCodecContext* encoder_;
    Stitcher stitcher_;
    FramePtr panoramas_[2];  // one is encoded while the other is stitched
    int stitching_ = 0;
    PacketPtr encoded_{new_packet()};
    int encode_result_ = 0;
    bool waiting_ = false;

    bool loaded_[2] = {false, false};
    std::atomic<int> lenses_loaded_{0};
    std::exception_ptr thrown_[2];
};
