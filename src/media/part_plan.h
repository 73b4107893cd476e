// How the pairs of an export are cut into parts that can be made apart from each other.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

class libavIF;
struct OutputOption;

// The frames of a movie in the order of its index, which is that of decoding and of showing.
class MovieFrames {
  public:
    struct Frame {
        int64_t time;  // ticks of the stream's time base
        bool is_key;
    };

    explicit MovieFrames(std::vector<Frame> frames) : frames_(std::move(frames)) {}

    int64_t count() const { return static_cast<int64_t>(frames_.size()); }
    int64_t time_of(int64_t frame) const { return frames_[static_cast<size_t>(frame)].time; }

    // The last key frame that is not behind `frame`; the first frame where there is none.
    int64_t key_before(int64_t frame) const;

  private:
    std::vector<Frame> frames_;
};

struct PartPlan {
    std::array<std::optional<MovieFrames>, 2> movies;  // empty: a still
    std::array<int64_t, 2> first_read{0, 0};           // the frames at which a plain export begins to read
    std::vector<std::array<int64_t, 2>> pairs;         // the numbers of each pair's frames; 0 of a still
    int64_t part_pairs = 1;                            // in each part but the last

    int64_t parts() const { return (pair_count() + part_pairs - 1) / part_pairs; }
    int64_t pair_count() const { return static_cast<int64_t>(pairs.size()); }

    // The pairs, from the first up to the end, of a share's parts: whole parts, as evenly as can be.
    std::array<int64_t, 2> pairs_of_share(int64_t number, int64_t count) const;
};

// Finds which frames a plain export of `media`, whose inputs are open, would pair. Nothing when only decoding one frame
// after the other can tell: where an index does not name each frame with its time, where a movie breaks off, or where
// the key frames lie so far apart that parts would mostly decode frames of others.
std::optional<PartPlan> plan_parts(const libavIF& media, const OutputOption& option);
