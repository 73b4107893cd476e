// The export of a movie in parts, several of which are made at a time.
#include <algorithm>
#include <atomic>
#include <memory>
#include <numeric>
#include <vector>

#include "base/files.h"
#include "base/log.h"
#include "media/frame_ticks.h"
#include "media/libavif.h"
#include "media/lockstep.h"
#include "media/output_option.h"
#include "media/part.h"
#include "media/part_encoder.h"
#include "media/share_file.h"
#include "projection/parallel.h"

namespace {

// Pairs that each part makes before their packets are written and progress is told: about half a second.
constexpr int64_t kRoundPairs = 8;

// The sound of the input that is wanted, written as far as its pictures are.
class SoundBeside {
  public:
    SoundBeside(libavIF* media, const OutputOption& option, const PartPlan& plan);

    // Up to the packet of the input's picture in the pair.
    int write_to(const std::array<int64_t, 2>& pair);
    int write_rest();
    bool is_done() const { return is_done_; }
    const char* failed_step() const { return failed_step_; }

  private:
    int read();

    libavIF* media_;
    int input_;  // -1: none
    float start_ = 0;
    float end_ = 0;
    int64_t next_frame_ = 0;  // the picture that is read next
    bool is_done_;
    PacketPtr packet_{new_packet()};
    const char* failed_step_ = nullptr;
};

SoundBeside::SoundBeside(libavIF* media, const OutputOption& option, const PartPlan& plan)
    : media_(media), input_(option.audio_source) {
    const bool is_elsewhere = option.share.number > 1;  // the first share has the sound of the whole movie
    is_done_ = (input_ != 0 && input_ != 1) || !media->hasAudio(input_) || is_elsewhere;
    if (!is_done_) {
        start_ = (input_ == 0 ? option.start1 : option.start2) - kBoundMargin;
        end_ = (input_ == 0 ? option.end1 : option.end2) + kBoundMargin;
        next_frame_ = plan.first_read[static_cast<size_t>(input_)];
    }
}

int SoundBeside::write_to(const std::array<int64_t, 2>& pair) {
    int result = 0;
    while (!is_done_ && result >= 0 && next_frame_ <= pair[static_cast<size_t>(input_)]) {
        result = read();
    }
    return result;
}

int SoundBeside::write_rest() {
    int result = 0;
    while (!is_done_ && result >= 0) {
        result = read();
    }
    return result;
}

int SoundBeside::read() {
    av_packet_unref(packet_.get());
    int result = media_->read_packet(input_, packet_.get(), {true, true, true});
    if (result == AVERROR_EOF) {
        is_done_ = true;
        return 0;
    }
    if (result < 0) {
        failed_step_ = input_ == 0 ? "read_frame1" : "read_frame2";
    } else if (packet_->stream_index == media_->video_stream_index[input_]) {
        ++next_frame_;
    } else if (packet_->stream_index == media_->audio_stream_index[input_]) {
        int finished = 0;
        result = media_->wtire_audio2(input_, packet_.get(), &finished, media_->audio_block_size(), start_, end_);
        is_done_ = finished != 0;
        // Only input 2's is told, as established.
        failed_step_ = result < 0 && input_ == 1 ? "wtire_audio" : nullptr;
    }
    return std::min(result, 0);
}

// The parts that are made at a time.
class Wave {
  public:
    // The parts `first` up to `end`; no pair is begun any more when something stands at `cancel_path`.
    Wave(const PartJob& job, int64_t first, int64_t end, const char* cancel_path);

    // Each part that is not done makes some pairs more.
    void make_some();
    bool went_wrong() const;
    int64_t pairs_made() const;

    // The next packet in the order of the parts; null while it is not made yet.
    PacketPtr take_packet();
    bool is_written() const { return writing_ == parts_.size(); }

  private:
    void make_round(Part* part, std::atomic<size_t>* behind) const;

    std::vector<std::unique_ptr<Part>> parts_;
    const int64_t round_pairs_;
    const char* const cancel_path_;
    size_t writing_ = 0;  // the part whose packets are taken
};

// Parts in line for a thread must not make a round longer.
Wave::Wave(const PartJob& job, int64_t first, int64_t end, const char* cancel_path)
    : round_pairs_(std::clamp<int64_t>(kRoundPairs * cv::getNumThreads() / (end - first), 1, kRoundPairs)),
      cancel_path_(cancel_path) {
    for (int64_t number = first; number < end; ++number) {
        parts_.push_back(std::make_unique<Part>(job, number));
    }
}

// Who is done with the round goes on while others are not, for a core that waits makes nothing. `behind`: how many
// parts are not done with it.
void Wave::make_round(Part* part, std::atomic<size_t>* behind) const {
    const auto make_while = [&](const auto& wanted) {
        for (int64_t pair = 0; pair < round_pairs_ && wanted() && !isCancelled(cancel_path_); ++pair) {
            part->make_next();
        }
    };
    make_while([] { return true; });
    --*behind;
    make_while([behind] { return behind->load() > 0; });
}

void Wave::make_some() {
    std::vector<Part*> open;
    for (const std::unique_ptr<Part>& part : parts_) {
        if (!part->is_done()) {
            open.push_back(part.get());
        }
    }
    std::atomic<size_t> behind = open.size();
    if (open.size() == 1) {
        make_round(open.front(), &behind);  // no other needs the threads that it shares its steps out to
    } else {
        in_parallel(static_cast<int>(open.size()), [&](const cv::Range& range) {
            for (int i = range.start; i < range.end; ++i) {
                make_round(open[static_cast<size_t>(i)], &behind);
            }
        });
    }
    for (const Part* part : open) {
        part->rethrow();
    }
}

bool Wave::went_wrong() const {
    return std::any_of(parts_.begin(), parts_.end(), [](const auto& part) { return part->went_wrong(); });
}

int64_t Wave::pairs_made() const {
    return std::accumulate(parts_.begin(), parts_.end(), int64_t{0},
                           [](int64_t sum, const auto& part) { return sum + part->made(); });
}

PacketPtr Wave::take_packet() {
    for (; !is_written(); ++writing_) {
        PacketPtr packet = parts_[writing_]->take_packet();
        if (packet || !parts_[writing_]->is_done()) {
            return packet;
        }
    }
    return nullptr;
}

// Sends the replies of a plain export, however many pairs came at once.
class Progress {
  public:
    Progress(const ReportProgress& report, int64_t every) : report_(report), every_(every) {}

    // Whether the caller wants to stop.
    bool is_unwanted_at(int64_t pairs) {
        bool unwanted = false;
        while (!unwanted && report_ && reported_ + every_ <= pairs) {
            reported_ += every_;
            unwanted = report_(NQ360_PROGRESS, reported_);
        }
        return unwanted;
    }

  private:
    const ReportProgress& report_;
    int64_t every_;
    int64_t reported_ = 0;
};

}  // namespace

int libavIF::write_parts(const OutputOption& option, const PartPlan& plan, const char* cancel_path,
                         const ReportProgress& report, bool* starts_over) {
    const CodecPtr settings = settings_of(video_encoder_context);
    avcodec_free_context(&video_encoder_context);  // the parts have their own
    const PartJob job = {
        {input_path[0], input_path[1]}, option, plan, std::make_shared<StitchTables>(option, true), settings.get()};
    SoundBeside sound(this, option, plan);
    const auto write = [&](AVPacket* packet) {
        const auto pair = static_cast<size_t>(next_video_pts / kFrameTicks);
        const int sounded = sound.write_to(plan.pairs[pair]);
        if (sounded < 0) {
            return report_failed_step(sounded, sound.failed_step());
        }
        next_video_pts += kFrameTicks;
        return write_video_packet(1, packet) < 0 ? report_unwritten(error_code) : 0;
    };
    const auto wants_stop = [&](Progress* progress, int64_t pairs) {
        if (!progress->is_unwanted_at(pairs) && !isCancelled(cancel_path)) {
            return false;
        }
        nq360_log(1, "[libavIF::write_video] cancelled");
        return true;
    };
    const auto [begin, end] = share_file ? plan.pairs_of_share(option.share.number, option.share.count)
                                         : std::array<int64_t, 2>{0, plan.pair_count()};
    next_video_pts = begin * kFrameTicks;
    if (share_file) {
        share_file->set_next_picture(begin);
    }
    Progress progress(report, option.update_frame);
    const int64_t workers = option.workers > 0 ? option.workers : std::max(cv::getNumThreads(), 1);
    const int64_t end_part = (end + plan.part_pairs - 1) / plan.part_pairs;
    for (int64_t first = begin / plan.part_pairs; first < end_part; first += workers) {
        Wave wave(job, first, std::min(first + workers, end_part), cancel_path);
        while (!wave.is_written()) {
            wave.make_some();
            if (wave.went_wrong()) {
                *starts_over = true;
                return 0;
            }
            if (wants_stop(&progress, first * plan.part_pairs - begin + wave.pairs_made())) {
                return stop();
            }
            while (const PacketPtr packet = wave.take_packet()) {
                const int written = write(packet.get());
                if (written < 0) {
                    return written;
                }
            }
        }
    }
    // In a share, the sound beside the pictures of the others too.
    int sounded = 0;
    for (int64_t pair = end; pair < plan.pair_count() && !sound.is_done() && sounded >= 0; ++pair) {
        if (wants_stop(&progress, end - begin)) {
            return stop();
        }
        share_file->set_next_picture(pair);
        sounded = sound.write_to(plan.pairs[static_cast<size_t>(pair)]);
    }
    if (share_file) {
        share_file->set_next_picture(plan.pair_count());
    }
    sounded = sounded < 0 ? sounded : sound.write_rest();
    return sounded < 0 ? report_failed_step(sounded, sound.failed_step()) : 0;
}
