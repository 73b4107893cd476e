// One part of an export: its pairs are decoded, stitched and encoded apart from all others.
#pragma once

#include <array>
#include <deque>
#include <exception>
#include <memory>
#include <optional>

#include "media/output_option.h"
#include "media/panorama_encoder.h"
#include "media/part_input.h"
#include "media/part_plan.h"

// What all parts of an export share.
struct PartJob {
    std::array<const char*, 2> paths;
    const OutputOption& option;
    const PartPlan& plan;
    std::shared_ptr<const StitchTables> tables;
    const AVCodecContext* encoder;  // whose settings those of the parts take
};

class Part {
  public:
    // The part of that number, counted from 0; `job` is borrowed. Nothing is opened yet.
    Part(const PartJob& job, int64_t number);

    // Makes the next pair. Any thread. What goes wrong is kept, and nothing is made after it.
    void make_next() noexcept;

    int64_t made() const { return next_ - first_; }  // pairs
    bool is_done() const { return next_ == end_; }
    // Whether something came otherwise than planned, or could not be read or coded at all.
    bool went_wrong() const { return went_wrong_; }
    // That there was no memory.
    void rethrow() const;

    // The next packet, without its place in the file; null while none is there.
    PacketPtr take_packet();

  private:
    void open();
    void make_pair();
    void load(int lens, int64_t frame);
    void keep_packet();
    void close();

    const PartJob& job_;
    const int64_t first_;  // pairs
    const int64_t end_;
    int64_t next_;
    std::array<std::optional<PartInput>, 2> inputs_;
    CodecPtr encoder_;
    std::optional<PanoramaEncoder> panoramas_;
    std::deque<PacketPtr> packets_;
    std::array<bool, 2> is_missing_{false, false};
    bool went_wrong_ = false;
    std::exception_ptr no_memory_;
};
