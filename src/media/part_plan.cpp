#include "media/part_plan.h"

#include <algorithm>

extern "C" {
#include <libavutil/avstring.h>
}

#include "media/libavif.h"
#include "media/lockstep.h"
#include "media/output_option.h"
#include "media/whole.h"

namespace {

// Frames from the key frame before a part to its first one, beyond which it would decode more for nothing than it has.
constexpr int64_t kMostToKeyFrame = 120;

// An input of the lockstep that has the frames of an index in the place of decoded ones.
class IndexSource : public LockstepSource {
  public:
    // `movie`: null for a still.
    IndexSource(const MovieFrames* movie, int64_t first, double time_base)
        : movie_(movie), first_(first), last_(movie ? movie->count() : 1), time_base_(time_base), next_(first) {}

    int read() override {
        is_sent_ = false;
        return next_ < last_ ? kVideo : kEndOfFile;
    }
    int write_sound(bool* /*past_end*/) override { return 0; }
    int send() override {
        is_sent_ = true;
        return 0;
    }
    int receive(double* seconds) override;
    int miss_picture() override { return AVERROR_EOF; }

    int64_t frame() const { return movie_ ? next_ - 1 : 0; }

  private:
    const MovieFrames* movie_;
    int64_t first_;
    int64_t last_;
    double time_base_;
    int64_t next_;
    bool is_sent_ = false;
};

// A frame's time is that of the one before, and 0 of the first.
int IndexSource::receive(double* seconds) {
    if (!is_sent_) {
        return kNeedsPacket;
    }
    if (next_ == last_) {
        return kNoMore;
    }
    is_sent_ = false;
    const int64_t ticks = movie_ && next_ > first_ ? movie_->time_of(next_ - 1) : 0;
    *seconds = static_cast<double>(ticks) * time_base_;
    ++next_;
    return kFrame;
}

// What is shown in another order than it is decoded has times that the index does not tell.
std::optional<MovieFrames> frames_of(const AVFormatContext* input, const AVStream* stream) {
    const int count = avformat_index_get_entries_count(stream);
    if (!av_match_name("mov", input->iformat->name) || count != stream->nb_frames ||
        stream->codecpar->video_delay > 0) {
        return {};
    }
    std::vector<MovieFrames::Frame> frames;
    frames.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(const_cast<AVStream*>(stream), i);
        const bool in_order = frames.empty() || entry->timestamp > frames.back().time;
        if (!in_order || entry->size <= 0 || (entry->flags & AVINDEX_DISCARD_FRAME)) {
            return {};
        }
        frames.push_back({entry->timestamp, (entry->flags & AVINDEX_KEYFRAME) != 0});
    }
    return MovieFrames(std::move(frames));
}

// Where a plain export begins: at the key frame to which the demuxer seeks.
int64_t first_frame(const AVStream* stream, float start) {
    const int64_t ticks = start_ticks(start, stream->time_base);
    const int key = av_index_search_timestamp(const_cast<AVStream*>(stream), ticks, AVSEEK_FLAG_BACKWARD);
    return start == 0 ? 0 : std::max(key, 0);
}

bool is_whole(const libavIF& media, const OutputOption& option, int input) {
    const AVFormatContext* format = media.input_format[input];
    const bool wants_sound = option.audio_source == input && media.hasAudio(input);
    return share_there(format, media.video_stream_index[input]) == 1 &&
           (!wants_sound || share_there(format, media.audio_stream_index[input]) == 1);
}

bool keys_are_near(const PartPlan& plan) {
    for (int64_t part = 0; part < plan.parts(); ++part) {
        const std::array<int64_t, 2>& pair = plan.pairs[static_cast<size_t>(part * plan.part_pairs)];
        for (size_t input = 0; input < 2; ++input) {
            const std::optional<MovieFrames>& movie = plan.movies[input];
            if (movie && pair[input] - movie->key_before(pair[input]) > kMostToKeyFrame) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

int64_t MovieFrames::key_before(int64_t frame) const {
    while (frame > 0 && !frames_[static_cast<size_t>(frame)].is_key) {
        --frame;
    }
    return frame;
}

std::array<int64_t, 2> PartPlan::pairs_of_share(int64_t number, int64_t count) const {
    return {parts() * (number - 1) / count * part_pairs, std::min(parts() * number / count * part_pairs, pair_count())};
}

std::optional<PartPlan> plan_parts(const libavIF& media, const OutputOption& option) {
    const float starts[2] = {option.start1, option.start2};
    const float ends[2] = {option.end1, option.end2};
    PartPlan plan;
    plan.part_pairs = option.part_pairs;
    std::vector<IndexSource> sources;
    for (int input = 0; input < 2; ++input) {
        const auto i = static_cast<size_t>(input);
        const AVStream* stream = media.input_format[input]->streams[media.video_stream_index[input]];
        if (!media.is_still[input]) {
            plan.movies[i] = frames_of(media.input_format[input], stream);
            if (!plan.movies[i] || !is_whole(media, option, input)) {
                return {};
            }
            plan.first_read[i] = first_frame(stream, starts[input]);
        }
        // How much sound a plain export reads beside a still depends on the other movie's packets.
        if (media.is_still[input] && option.audio_source == input && media.hasAudio(input)) {
            return {};
        }
        const MovieFrames* movie = plan.movies[i] ? &*plan.movies[i] : nullptr;
        sources.emplace_back(movie, plan.first_read[i], av_q2d(stream->time_base));
    }
    LockstepInput input1 = {&sources[0], media.is_still[0], starts[0], ends[0]};
    LockstepInput input2 = {&sources[1], media.is_still[1], starts[1], ends[1]};
    Lockstep lockstep(&input1, &input2, {});
    int result = 0;
    while ((result = lockstep.next_pair()) > 0) {
        plan.pairs.push_back({sources[0].frame(), sources[1].frame()});
        lockstep.pair_done();
    }
    if (result < 0 || plan.pairs.empty() || !keys_are_near(plan)) {
        return {};
    }
    return plan;
}
