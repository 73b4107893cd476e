#include "media/part.h"

#include <algorithm>
#include <new>
#include <stdexcept>

#include "media/frame_ticks.h"
#include "media/part_encoder.h"
#include "projection/parallel.h"

namespace {

void expect(bool as_planned) {
    if (!as_planned) {
        throw std::runtime_error("a part came otherwise than planned");
    }
}

}  // namespace

Part::Part(const PartJob& job, int64_t number)
    : job_(job),
      first_(number * job.plan.part_pairs),
      end_(std::min(first_ + job.plan.part_pairs, job.plan.pair_count())),
      next_(first_) {}

void Part::rethrow() const {
    if (no_memory_) {
        std::rethrow_exception(no_memory_);
    }
}

void Part::make_next() noexcept {
    if (went_wrong_ || no_memory_ || is_done()) {
        return;
    }
    try {
        if (!panoramas_) {
            open();
        }
        make_pair();
        if (is_done()) {
            close();
        }
    } catch (const std::bad_alloc&) {
        no_memory_ = std::current_exception();
    } catch (...) {
        went_wrong_ = true;
    }
}

void Part::open() {
    const std::array<int64_t, 2>& pair = job_.plan.pairs[static_cast<size_t>(first_)];
    for (size_t lens = 0; lens < 2; ++lens) {
        const std::optional<MovieFrames>& movie = job_.plan.movies[lens];
        inputs_[lens].emplace(job_.paths[lens], movie ? &*movie : nullptr, job_.option.looks_for_missing_parts);
        expect(inputs_[lens]->open(pair[lens]));
    }
    expect(open_part_encoder(job_.encoder, &encoder_) >= 0);
    panoramas_.emplace(job_.option, job_.tables, encoder_.get());
}

// The panorama before is encoded beside.
void Part::make_pair() {
    const std::array<int64_t, 2>& pair = job_.plan.pairs[static_cast<size_t>(next_)];
    in_parallel(3, [&](const cv::Range& range) {
        for (int step = range.start; step < range.end; ++step) {
            if (step == 0) {
                panoramas_->encode();
            } else {
                load(step - 1, pair[static_cast<size_t>(step - 1)]);
            }
        }
    });
    expect(!is_missing_[0] && !is_missing_[1]);
    keep_packet();
    const auto is_still = [this](size_t lens) { return !job_.plan.movies[lens]; };
    expect(panoramas_->queue(next_ * kFrameTicks, is_still(0), is_still(1)) >= 0);
    ++next_;
}

void Part::load(int lens, int64_t number) {
    if (panoramas_->is_loaded(lens)) {
        return;
    }
    const AVFrame* frame = inputs_[static_cast<size_t>(lens)]->frame(number);
    if (frame) {
        panoramas_->load_and_stitch(lens, frame);
    } else {
        is_missing_[static_cast<size_t>(lens)] = true;
    }
}

void Part::keep_packet() {
    if (!panoramas_->is_waiting()) {
        return;
    }
    expect(panoramas_->take_result() == 1);
    packets_.push_back(new_packet());
    av_packet_move_ref(packets_.back().get(), panoramas_->packet());
}

// Only the packets wait for their turn.
void Part::close() {
    panoramas_->encode();
    keep_packet();
    panoramas_.reset();
    encoder_.reset();
    for (std::optional<PartInput>& input : inputs_) {
        input.reset();
    }
}

PacketPtr Part::take_packet() {
    if (packets_.empty()) {
        return nullptr;
    }
    PacketPtr packet = std::move(packets_.front());
    packets_.pop_front();
    return packet;
}
