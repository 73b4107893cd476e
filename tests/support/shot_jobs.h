// Calls of the jobs on a shot.
#pragma once

#include <string>
#include <vector>

#include "support/with_options.h"

namespace test_support {

// A record with these halves; the texts are borrowed.
inline NQ360_EXPORT_OPTIONS shot_options(const std::string& lens1, const std::string& lens2) {
    NQ360_EXPORT_OPTIONS options;
    NQ360_export_options_init(&options);
    options.lens1 = lens1.c_str();
    options.lens2 = lens2.c_str();
    return options;
}

inline Outcome open_shot(NQ360_EXPORT_OPTIONS options, NQ360_SHOT** shot, Recorded* recorded) {
    *shot = nullptr;
    options.reply = record_reply;
    options.log = record_line;
    options.user = recorded;
    *shot = NQ360_shot_open(&options);
    return {0, recorded->replies};
}

// A shot that stays open while it lives; null when it could not be opened.
class ShotGuard {
  public:
    explicit ShotGuard(const NQ360_EXPORT_OPTIONS& options) {
        Recorded recorded;
        outcome_ = open_shot(options, &shot_, &recorded);
    }
    ~ShotGuard() { NQ360_shot_close(shot_); }
    ShotGuard(const ShotGuard&) = delete;
    ShotGuard& operator=(const ShotGuard&) = delete;

    NQ360_SHOT* get() const { return shot_; }
    const Outcome& outcome() const { return outcome_; }

  private:
    NQ360_SHOT* shot_ = nullptr;
    Outcome outcome_;
};

// What a preview gave beside its replies.
struct Previewed {
    Outcome outcome;
    std::vector<uint8_t> jpeg;
};

inline Previewed preview(NQ360_EXPORT_OPTIONS options, NQ360_SHOT* shot = nullptr) {
    Recorded recorded;
    options.reply = record_reply;
    options.log = record_line;
    options.user = &recorded;
    unsigned char left = 0;
    unsigned char* jpeg = &left;  // must not stay
    size_t size = 1;
    Previewed previewed;
    previewed.outcome.result = NQ360_preview(&options, shot, &jpeg, &size);
    previewed.outcome.replies = recorded.replies;
    EXPECT_EQ(jpeg == nullptr, previewed.outcome.result != NQ360_FINISHED);
    EXPECT_EQ(size == 0, jpeg == nullptr);
    if (jpeg && size > 0) {
        previewed.jpeg.assign(jpeg, jpeg + size);
        NQ360_free(jpeg);
    }
    return previewed;
}

inline Outcome match(NQ360_EXPORT_OPTIONS options, NQ360_SHOT* shot, Recorded* recorded) {
    options.reply = record_reply;
    options.log = record_line;
    options.user = recorded;
    Outcome outcome;
    outcome.result = NQ360_match(&options, shot);
    outcome.replies = recorded->replies;
    return outcome;
}
inline Outcome match(const NQ360_EXPORT_OPTIONS& options, NQ360_SHOT* shot = nullptr) {
    Recorded recorded;
    return match(options, shot, &recorded);
}

}  // namespace test_support
