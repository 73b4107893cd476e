#include "media/lockstep.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

extern "C" {
#include <libavutil/error.h>
}

namespace {

constexpr double kFrameSeconds = 1001.0 / 30000;
constexpr int kNoPicture = -7777;  // what a still without a picture is answered
constexpr int kNeverEnds = -9999;  // what a source answers to whoever asks it more often than any loop must

double time_of(int frame) {
    return frame * kFrameSeconds;
}

// A packet of a scripted file: a picture's number, or a sound packet's time.
struct ScriptedPacket {
    LockstepSource::Packet kind = LockstepSource::kVideo;
    int frame = 0;
    double seconds = 0;  // of sound
};

// What was asked of a source, in the words of the tables.
struct ScriptedEvent {
    std::string read = "-";
    std::string sent = "-";
    std::string received = "-";
    std::string time = "-";
};

// A file and its decoder. The decoder holds back `held` frames until it is told the end. The first frame carries
// the time 0 and each further one the time of the frame before it, as receive_lagging_frame gives them.
class ScriptedSource : public LockstepSource {
  public:
    ScriptedSource(std::vector<ScriptedPacket> packets, int held, float sound_end)
        : packets_(std::move(packets)), held_(held), sound_end_(sound_end) {}

    int read() override {
        if (too_many_steps()) {
            return kNeverEnds;
        }
        unsent_packets_ += last_read_ == kVideo ? 1 : 0;
        if (next_ == packets_.size()) {
            last_read_ = kEndOfFile;
            event_.read = "end";
            return kEndOfFile;
        }
        last_ = packets_[next_++];
        last_read_ = last_.kind;
        if (last_.kind == kVideo) {
            event_.read = "P" + std::to_string(last_.frame);
        }
        return last_.kind;
    }

    int write_sound(bool* past_end) override {
        EXPECT_EQ(last_read_, kSound) << "sound is written where none was read";
        sound_written_.push_back(last_.seconds);
        *past_end = static_cast<float>(last_.seconds) > sound_end_;
        return sound_result_;
    }

    int miss_picture() override { return kNoPicture; }

    int send() override {
        EXPECT_TRUE(last_read_ == kVideo || last_read_ == kEndOfFile) << "a packet is sent twice, or a wrong one";
        EXPECT_FALSE(told_end_) << "a packet is sent after the end";
        if (last_read_ == kVideo) {
            in_decoder_.push_back(last_.frame);
            event_.sent = "P" + std::to_string(last_.frame);
        } else {
            told_end_ = true;
            event_.sent = "end";
        }
        last_read_ = -1;
        return send_result_;
    }

    int receive(double* seconds) override {
        if (too_many_steps()) {
            return kNeverEnds;
        }
        if (fails_at_frame_ == received_) {
            return AVERROR_INVALIDDATA;
        }
        const bool gives = in_decoder_.size() > (told_end_ ? 0 : static_cast<size_t>(held_));
        if (!gives) {
            event_.received = told_end_ ? "no more" : "needs a packet";
            return told_end_ ? kNoMore : kNeedsPacket;
        }
        frame_ = in_decoder_.front();
        in_decoder_.pop_front();
        ++received_;
        *seconds = last_frame_ < 0 ? 0 : time_of(last_frame_);
        event_.received = "F" + std::to_string(frame_);
        event_.time = last_frame_ < 0 ? "0" : "t" + std::to_string(last_frame_);
        last_frame_ = frame_;
        return kFrame;
    }

    int frame() const { return frame_; }
    int received() const { return received_; }
    int unsent_packets() const { return unsent_packets_; }
    const std::vector<double>& sound_written() const { return sound_written_; }
    bool at_end() const { return next_ == packets_.size(); }
    bool gave_up() const { return steps_ > kMostSteps; }

    void fail_at_frame(int frame) { fails_at_frame_ = frame; }
    void fail_to_send(int result) { send_result_ = result; }
    void fail_sound(int result) { sound_result_ = result; }

    // What happened since the last call.
    ScriptedEvent take_event() { return std::exchange(event_, {}); }

  private:
    static constexpr int kMostSteps = 2000;
    bool too_many_steps() {
        if (++steps_ > 2 * kMostSteps) {
            std::fputs("the loop never ends, and pays no heed to errors\n", stderr);
            std::abort();
        }
        return steps_ > kMostSteps;
    }

    std::vector<ScriptedPacket> packets_;
    int held_;
    float sound_end_;
    size_t next_ = 0;
    ScriptedPacket last_;
    int last_read_ = -1;
    std::deque<int> in_decoder_;
    bool told_end_ = false;
    int last_frame_ = -1;
    int frame_ = -1;
    int received_ = 0;
    int unsent_packets_ = 0;
    int steps_ = 0;
    int fails_at_frame_ = -1;
    int send_result_ = 0;
    int sound_result_ = 0;
    std::vector<double> sound_written_;
    ScriptedEvent event_;
};

std::vector<ScriptedPacket> pictures(int first, int count) {
    std::vector<ScriptedPacket> packets;
    for (int frame = first; frame < count; ++frame) {
        packets.push_back({LockstepSource::kVideo, frame, 0});
    }
    return packets;
}

constexpr size_t kMostPairs = 1000;

using Pairs = std::vector<std::pair<int, int>>;

struct Outcome {
    int result = 0;  // of next_pair, or of finish
    Pairs pairs;
    std::vector<int64_t> counts;
    int passes = 0;          // rounds of reading
    int unsent_packets = 0;  // pictures that were read and thrown away while pairs were made
};

Outcome run(LockstepInput* input1, LockstepInput* input2, const ScriptedSource& source1,
            const ScriptedSource& source2) {
    Outcome outcome;
    Lockstep lockstep(input1, input2, [&] { ++outcome.passes; });
    while (outcome.pairs.size() < kMostPairs && (outcome.result = lockstep.next_pair()) > 0) {
        outcome.pairs.emplace_back(source1.frame(), source2.frame());
        outcome.counts.push_back(lockstep.count());
        lockstep.pair_done();
    }
    outcome.unsent_packets = source1.unsent_packets() + source2.unsent_packets();
    if (outcome.result == 0) {
        outcome.result = lockstep.finish();
    }
    return outcome;
}

// Two whole movies without sound.
Pairs pairs_of_movies(int frames1, int held1, int frames2, int held2) {
    ScriptedSource source1(pictures(0, frames1), held1, 0);
    ScriptedSource source2(pictures(0, frames2), held2, 0);
    LockstepInput input1{&source1, false, 0, 1000, false};
    LockstepInput input2{&source2, false, 0, 1000, false};
    const Outcome outcome = run(&input1, &input2, source1, source2);
    EXPECT_EQ(outcome.result, 0);
    return outcome.pairs;
}

Pairs equal_pairs(int count) {
    Pairs pairs;
    for (int i = 0; i < count; ++i) {
        pairs.emplace_back(i, i);
    }
    return pairs;
}

class EveryDecoder : public testing::TestWithParam<std::tuple<int, int>> {
  protected:
    int held1() const { return std::get<0>(GetParam()); }
    int held2() const { return std::get<1>(GetParam()); }
};

TEST_P(EveryDecoder, WholeMoviesPairEveryFrame) {
    for (int frames : {1, 2, 3, 4, 9}) {
        EXPECT_EQ(pairs_of_movies(frames, held1(), frames, held2()), equal_pairs(frames)) << frames;
    }
}

TEST_P(EveryDecoder, TheShorterMovieEndsThePairs) {
    EXPECT_EQ(pairs_of_movies(3, held1(), 7, held2()), equal_pairs(3));
    EXPECT_EQ(pairs_of_movies(7, held1(), 3, held2()), equal_pairs(3));
    EXPECT_EQ(pairs_of_movies(1, held1(), 7, held2()), equal_pairs(1));
    EXPECT_EQ(pairs_of_movies(7, held1(), 1, held2()), equal_pairs(1));
}

TEST_P(EveryDecoder, AMovieWithoutFramesMakesNoPair) {
    EXPECT_TRUE(pairs_of_movies(0, held1(), 4, held2()).empty());
    EXPECT_TRUE(pairs_of_movies(4, held1(), 0, held2()).empty());
    EXPECT_TRUE(pairs_of_movies(0, held1(), 0, held2()).empty());
}

INSTANTIATE_TEST_SUITE_P(Held, EveryDecoder, testing::Combine(testing::Range(0, 3), testing::Range(0, 3)));

// ---- One input alone: the tables of docs/lockstep.md ----

// A row for each read_packet and decode: what is read and sent, what the decoder answers, the time that a frame
// carries, and the flags that the next row starts with.
std::string table_of(int frames, int held) {
    ScriptedSource source(pictures(0, frames), held, 0);
    LockstepInput input{&source, false, 0, 1000, false};
    std::ostringstream table;
    for (int row = 1; !input.ended && !testing::Test::HasFailure(); ++row) {
        EXPECT_EQ(input.needs_packet() ? input.read_packet() : 0, 0);
        EXPECT_EQ(input.decode(), 0);
        const ScriptedEvent event = source.take_event();
        table << "| " << row << " | " << event.read << " | " << event.sent << " | " << event.received << " | "
              << event.time << " | " << (input.frame_ready ? "frame_ready" : "") << (input.ended ? "ended" : "")
              << " |\n";
        input.take_frame();
    }
    return table.str();
}

TEST(LockstepTable, ADecoderThatHoldsNothingBack) {
    EXPECT_EQ(table_of(4, 0),
              "| 1 | P0 | P0 | F0 | 0 | frame_ready |\n"
              "| 2 | P1 | P1 | F1 | t0 | frame_ready |\n"
              "| 3 | P2 | P2 | F2 | t1 | frame_ready |\n"
              "| 4 | P3 | P3 | F3 | t2 | frame_ready |\n"
              "| 5 | end | end | no more | - | ended |\n");
}

TEST(LockstepTable, ADecoderThatHoldsOneFrameBack) {
    EXPECT_EQ(table_of(4, 1),
              "| 1 | P0 | P0 | needs a packet | - |  |\n"
              "| 2 | P1 | P1 | F0 | 0 | frame_ready |\n"
              "| 3 | P2 | P2 | F1 | t0 | frame_ready |\n"
              "| 4 | P3 | P3 | F2 | t1 | frame_ready |\n"
              "| 5 | end | end | F3 | t2 | frame_ready |\n"
              "| 6 | - | - | no more | - | ended |\n");
}

TEST(LockstepTable, ADecoderThatHoldsTwoFramesBack) {
    EXPECT_EQ(table_of(4, 2),
              "| 1 | P0 | P0 | needs a packet | - |  |\n"
              "| 2 | P1 | P1 | needs a packet | - |  |\n"
              "| 3 | P2 | P2 | F0 | 0 | frame_ready |\n"
              "| 4 | P3 | P3 | F1 | t0 | frame_ready |\n"
              "| 5 | end | end | F2 | t1 | frame_ready |\n"
              "| 6 | - | - | F3 | t2 | frame_ready |\n"
              "| 7 | - | - | no more | - | ended |\n");
}

// ---- Ranges ----

// The frames of one movie that a range lets through.
std::vector<int> frames_in_range(int first, int frames, int held, float start, float end) {
    ScriptedSource source(pictures(first, frames), held, 0);
    ScriptedSource picture(pictures(0, 1), 0, 0);
    LockstepInput movie{&source, false, start, end, false};
    LockstepInput still{&picture, true, 0, 0, false};
    std::vector<int> chosen;
    for (const auto& pair : run(&movie, &still, source, picture).pairs) {
        chosen.push_back(pair.first);
    }
    return chosen;
}

using Frames = std::vector<int>;

TEST(LockstepRange, FromTheBeginningTheFrameAfterTheEndBelongsToIt) {
    for (int held : {0, 1, 2}) {
        EXPECT_EQ(frames_in_range(0, 10, held, 0, static_cast<float>(time_of(4))), (Frames{0, 1, 2, 3, 4, 5})) << held;
        EXPECT_EQ(frames_in_range(0, 10, held, 0, 0), (Frames{0, 1})) << held;
        EXPECT_EQ(frames_in_range(0, 10, held, 0, static_cast<float>(time_of(9))),
                  (Frames{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}))
            << held;
    }
}

TEST(LockstepRange, TheTimeLagMovesALaterStartOneFrameOn) {
    for (int held : {0, 1, 2}) {
        const auto start = static_cast<float>(time_of(3));
        const auto end = static_cast<float>(time_of(5));
        EXPECT_EQ(frames_in_range(0, 10, held, start, end), (Frames{4, 5, 6})) << held;
        EXPECT_EQ(frames_in_range(3, 10, held, start, end), (Frames{4, 5, 6})) << "read from frame 3 on";
    }
}

// From a quarter of a second on, 1e-8 is lost in a float: the comparison itself has to let the bound in.
TEST(LockstepRange, AFrameExactlyOnABoundIsInside) {
    for (int frame : {1, 8, 29, 300, 30001}) {
        const auto bound = static_cast<float>(time_of(frame));
        EXPECT_EQ(frames_in_range(frame, frame + 4, 0, bound, bound), (Frames{frame + 1})) << frame;
    }
}

TEST(LockstepRange, PastTheEndOrBackwardsHoldsNoFrame) {
    EXPECT_EQ(frames_in_range(0, 10, 1, 5, 9), Frames{});
    EXPECT_EQ(frames_in_range(0, 10, 1, 0, -1), Frames{});
    EXPECT_EQ(frames_in_range(0, 10, 1, static_cast<float>(time_of(6)), static_cast<float>(time_of(2))), Frames{});
}

TEST(LockstepRange, AStillTakesNoPartInIt) {
    ScriptedSource source(pictures(0, 5), 0, 0);
    ScriptedSource picture(pictures(0, 1), 0, 0);
    LockstepInput movie{&source, false, 0, 100, false};
    LockstepInput still{&picture, true, 50, 60, false};
    EXPECT_EQ(run(&still, &movie, picture, source).pairs, (Pairs{{0, 0}, {0, 1}, {0, 2}, {0, 3}, {0, 4}}));
}

// ---- Stills ----

TEST(LockstepStill, TwoMakeOnePair) {
    ScriptedSource source1(pictures(0, 1), 0, 0);
    ScriptedSource source2(pictures(0, 3), 1, 0);  // a movie whose container counts no frames passes for a still
    LockstepInput input1{&source1, true, 0, 0, false};
    LockstepInput input2{&source2, true, 0, 0, false};
    EXPECT_EQ(run(&input1, &input2, source1, source2).pairs, (Pairs{{0, 0}}));
}

TEST(LockstepStill, IsDecodedOnceAndUsedForEveryFrame) {
    ScriptedSource movie_source(pictures(0, 4), 2, 0);
    ScriptedSource source(pictures(0, 1), 1, 0);
    LockstepInput movie{&movie_source, false, 0, 100, false};
    LockstepInput still{&source, true, 0, 0, false};
    EXPECT_EQ(run(&movie, &still, movie_source, source).pairs, (Pairs{{0, 0}, {1, 0}, {2, 0}, {3, 0}}));
    EXPECT_EQ(source.received(), 1);
}

TEST(LockstepStill, WithoutItsPictureIsAnError) {
    ScriptedSource movie_source(pictures(0, 4), 0, 0);
    ScriptedSource source({}, 0, 0);
    LockstepInput movie{&movie_source, false, 0, 100, false};
    LockstepInput still{&source, true, 0, 0, false};
    EXPECT_EQ(run(&movie, &still, movie_source, source).result, kNoPicture);
}

// ---- Counting, errors, sound ----

TEST(LockstepCount, IsThePairsNumberWithStillsToo) {
    ScriptedSource movie_source(pictures(0, 3), 1, 0);
    ScriptedSource source(pictures(0, 1), 0, 0);
    LockstepInput movie{&movie_source, false, 0, 100, false};
    LockstepInput still{&source, true, 0, 0, false};
    EXPECT_EQ(run(&movie, &still, movie_source, source).counts, (std::vector<int64_t>{1, 2, 3}));
}

TEST(LockstepError, OfADecoderEndsThePairs) {
    for (int lens : {0, 1}) {
        ScriptedSource sources[2] = {{pictures(0, 9), 1, 0}, {pictures(0, 9), 1, 0}};
        sources[lens].fail_at_frame(4);
        LockstepInput input1{&sources[0], false, 0, 100, false};
        LockstepInput input2{&sources[1], false, 0, 100, false};
        const Outcome outcome = run(&input1, &input2, sources[0], sources[1]);
        EXPECT_EQ(outcome.result, AVERROR_INVALIDDATA);
        EXPECT_EQ(outcome.pairs, equal_pairs(4));
    }
}

TEST(LockstepError, OfSendingEndsThePairs) {
    ScriptedSource source1(pictures(0, 9), 1, 0);
    ScriptedSource source2(pictures(0, 9), 1, 0);
    source2.fail_to_send(AVERROR(EIO));
    LockstepInput input1{&source1, false, 0, 100, false};
    LockstepInput input2{&source2, false, 0, 100, false};
    EXPECT_EQ(run(&input1, &input2, source1, source2).result, AVERROR(EIO));
}

// A movie of `frames` pictures with a sound packet before each and `more` of them behind the last.
std::vector<ScriptedPacket> with_sound(int frames, int more) {
    std::vector<ScriptedPacket> packets;
    for (int i = 0; i < frames + more; ++i) {
        packets.push_back({LockstepSource::kSound, 0, time_of(i)});
        if (i < frames) {
            packets.push_back({LockstepSource::kVideo, i, 0});
        }
        packets.push_back({LockstepSource::kOther, 0, 0});
    }
    return packets;
}

TEST(LockstepSound, OfTheChosenInputAloneIsWritten) {
    ScriptedSource source1(with_sound(4, 0), 1, 100);
    ScriptedSource source2(with_sound(4, 0), 1, 100);
    LockstepInput input1{&source1, false, 0, 100, false};
    LockstepInput input2{&source2, false, 0, 100, true};
    run(&input1, &input2, source1, source2);
    EXPECT_TRUE(source1.sound_written().empty());
    EXPECT_EQ(source2.sound_written().size(), 4u);
}

TEST(LockstepSound, BehindTheLastPairIsWrittenToo) {
    ScriptedSource source1(with_sound(3, 5), 0, 100);
    ScriptedSource source2(pictures(0, 2), 0, 100);
    LockstepInput input1{&source1, false, 0, 100, true};
    LockstepInput input2{&source2, false, 0, 100, false};
    EXPECT_EQ(run(&input1, &input2, source1, source2).pairs, equal_pairs(2));
    EXPECT_EQ(source1.sound_written().size(), 8u);
}

TEST(LockstepSound, IsReadNoFurtherThanTheFirstPacketPastTheRange) {
    const auto end = static_cast<float>(time_of(2));
    ScriptedSource source1(with_sound(20, 100), 0, end);
    ScriptedSource source2(pictures(0, 50), 0, 100);
    LockstepInput input1{&source1, false, 0, end, true};
    LockstepInput input2{&source2, false, 0, 100, false};
    run(&input1, &input2, source1, source2);
    EXPECT_EQ(source1.sound_written(), (std::vector<double>{time_of(0), time_of(1), time_of(2), time_of(3)}));
    EXPECT_FALSE(source1.at_end()) << "a long rest is read for nothing";
}

TEST(LockstepSound, AFailureToWriteItEndsThePairs) {
    ScriptedSource source1(with_sound(4, 0), 0, 100);
    ScriptedSource source2(pictures(0, 4), 0, 100);
    source1.fail_sound(AVERROR(ENOSPC));
    LockstepInput input1{&source1, false, 0, 100, true};
    LockstepInput input2{&source2, false, 0, 100, false};
    const Outcome outcome = run(&input1, &input2, source1, source2);
    EXPECT_EQ(outcome.result, AVERROR(ENOSPC));
    EXPECT_TRUE(outcome.pairs.empty());
}

TEST(LockstepSound, AFailureBehindTheLastPairIsReported) {
    ScriptedSource source1(with_sound(0, 3), 0, 100);
    ScriptedSource source2(pictures(0, 0), 0, 100);
    source1.fail_sound(AVERROR(ENOSPC));
    LockstepInput input1{&source1, false, 0, 100, true};
    LockstepInput input2{&source2, false, 0, 100, false};
    EXPECT_EQ(run(&input1, &input2, source1, source2).result, AVERROR(ENOSPC));
}

// ---- Random pairings ----

// A random input, as a description that the plain statement below can be told of.
struct RandomInput {
    bool still = false;
    int frames = 0;
    int first = 0;  // where the demuxer stands after seeking to the start: at a key frame at or before it
    int held = 0;
    float start = 0;
    float end = 0;
    bool sound = false;
    std::vector<ScriptedPacket> packets;
};

using Random = std::mt19937;

int pick(Random& random, int lowest, int highest) {
    return std::uniform_int_distribution<int>(lowest, highest)(random);
}

// A time near, on, or far from the frames; 0 often.
float pick_time(Random& random, int frames) {
    switch (pick(random, 0, 3)) {
        case 0:
            return 0;
        case 1:
            return static_cast<float>(time_of(pick(random, 0, frames + 2)));
        case 2:
            return static_cast<float>(time_of(pick(random, 0, frames + 2)) + kFrameSeconds / 3);
        default:
            return 1000;
    }
}

int first_frame_at_or_after(float start) {
    int frame = 0;
    while (frame < 1000 && static_cast<float>(time_of(frame)) < start) {
        ++frame;
    }
    return frame;
}

// -1 when even frame 0 lies behind the end.
int last_frame_at_or_before(float end) {
    int frame = -1;
    while (frame < 1000 && static_cast<float>(time_of(frame + 1)) <= end) {
        ++frame;
    }
    return frame;
}

RandomInput pick_input(Random& random) {
    RandomInput input;
    input.still = pick(random, 0, 5) == 0;
    input.frames = pick(random, input.still ? 1 : 0, pick(random, 0, 1) ? 3 : 14);
    input.held = pick(random, 0, 2);
    input.start = pick_time(random, input.frames);
    input.end = pick_time(random, input.frames);
    const bool seeks = !input.still && input.start > 0 && input.frames > 0;
    input.first = seeks ? pick(random, 0, std::min(first_frame_at_or_after(input.start), input.frames - 1)) : 0;

    const bool has_sound = pick(random, 0, 1) == 1;
    const double sound_step = kFrameSeconds * pick(random, 1, 30) / 10;
    const double ahead = kFrameSeconds * pick(random, -30, 30) / 10;  // how far sound stands before its pictures
    const double sound_length = time_of(pick(random, 0, 2 * input.frames));
    double sound = time_of(input.first);
    for (int frame = input.first; frame <= input.frames; ++frame) {
        const double until = frame == input.frames ? 1e9 : time_of(frame) + ahead;
        for (; has_sound && sound < until && sound < sound_length; sound += sound_step) {
            input.packets.push_back({LockstepSource::kSound, 0, sound});
        }
        if (pick(random, 0, 9) == 0) {
            input.packets.push_back({LockstepSource::kOther, 0, 0});
        }
        if (frame < input.frames) {
            input.packets.push_back({LockstepSource::kVideo, frame, 0});
        }
    }
    return input;
}

// The plain statement: which frames of an input take part, in their order.
Frames chosen_frames(const RandomInput& input) {
    if (input.still) {
        return {0};
    }
    const int k = first_frame_at_or_after(input.start);
    const int m = last_frame_at_or_before(input.end);
    const int from = input.start > 0 ? k + 1 : 0;
    const int to = m < 0 ? -1 : std::min(m + 1, input.frames - 1);
    Frames frames;
    for (int frame = from; frame <= to; ++frame) {
        frames.push_back(frame);
    }
    return frames;
}

Pairs expected_pairs(const RandomInput& input1, const RandomInput& input2) {
    const Frames frames1 = chosen_frames(input1);
    const Frames frames2 = chosen_frames(input2);
    const bool one_still = input1.still != input2.still;
    const size_t count = one_still ? std::max(input1.still ? 0 : frames1.size(), input2.still ? 0 : frames2.size())
                                   : std::min(frames1.size(), frames2.size());
    Pairs pairs;
    for (size_t i = 0; i < count; ++i) {
        pairs.emplace_back(frames1[input1.still ? 0 : i], frames2[input2.still ? 0 : i]);
    }
    return pairs;
}

// A movie's sound up to the range's end, and nothing twice or out of turn. What a still has stands before its
// picture.
void expect_whole_sound(const RandomInput& input, const std::vector<double>& written) {
    std::vector<double> all;
    size_t needed = 0;
    for (const ScriptedPacket& packet : input.packets) {
        if (input.still && packet.kind == LockstepSource::kVideo) {
            break;
        }
        if (packet.kind == LockstepSource::kSound) {
            all.push_back(packet.seconds);
            needed = static_cast<float>(packet.seconds) <= input.end ? all.size() : needed;
        }
    }
    EXPECT_GE(written.size(), needed);
    if (!input.still) {
        ASSERT_LE(written.size(), all.size());
        all.resize(written.size());
        EXPECT_EQ(written, all);
    }
}

std::string description(const RandomInput& input) {
    std::ostringstream text;
    text << (input.still ? "still" : "movie") << " of " << input.frames << " from " << input.first << ", holding "
         << input.held << ", range " << input.start << " to " << input.end << ", sound " << input.sound;
    return text.str();
}

TEST(LockstepRandom, EveryPairingEndsWithTheFramesOfThePlainStatement) {
    for (unsigned seed = 0; seed < 20000; ++seed) {
        Random random(seed);
        RandomInput one = pick_input(random);
        RandomInput two = pick_input(random);
        const int sound = pick(random, 0, 2);
        one.sound = sound == 0;
        two.sound = sound == 1;
        ScriptedSource source1(one.packets, one.held, one.end);
        ScriptedSource source2(two.packets, two.held, two.end);
        LockstepInput input1{&source1, one.still, one.start, one.end, one.sound};
        LockstepInput input2{&source2, two.still, two.start, two.end, two.sound};

        const Outcome outcome = run(&input1, &input2, source1, source2);

        ASSERT_FALSE(source1.gave_up() || source2.gave_up()) << "seed " << seed << " never ends\n"
                                                             << description(one) << "\n"
                                                             << description(two);
        EXPECT_EQ(outcome.result, 0);
        EXPECT_EQ(outcome.unsent_packets, 0);
        EXPECT_EQ(outcome.pairs, expected_pairs(one, two));
        for (size_t i = 0; i < outcome.counts.size(); ++i) {
            EXPECT_EQ(outcome.counts[i], static_cast<int64_t>(i + 1));
        }
        if (one.sound) {
            expect_whole_sound(one, source1.sound_written());
        }
        if (two.sound) {
            expect_whole_sound(two, source2.sound_written());
        }
        ASSERT_FALSE(HasFailure()) << "seed " << seed << "\n" << description(one) << "\n" << description(two);
    }
}

}  // namespace
