// Calls of the interface with options, their replies and log lines recorded.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/replies.h"

namespace test_support {

struct Recorded {
    std::vector<Reply> replies;
    std::vector<std::string> log;
    int stop_at = -1;  // the number of the reply whose answer is to stop the job; none
};

inline int record_reply(NQ360_STATE state, const char* json, void* user) {
    auto* recorded = static_cast<Recorded*>(user);
    recorded->replies.push_back({state, json});
    return static_cast<int>(recorded->replies.size()) - 1 == recorded->stop_at;
}

inline void record_line(int /*level*/, const char* line, void* user) {
    static_cast<Recorded*>(user)->log.emplace_back(line);
}

// A record as init fills it, with what most tests do not care about. The texts are borrowed.
inline NQ360_EXPORT_OPTIONS export_options(const std::string& lens1, const std::string& lens2,
                                           const std::string& output, int width = 720, int height = 360) {
    NQ360_EXPORT_OPTIONS options;
    NQ360_export_options_init(&options);
    options.lens1 = lens1.c_str();
    options.lens2 = lens2.c_str();
    options.output = output.c_str();
    options.width = width;
    options.height = height;
    options.datetime = "2026:01:02 03:04:05";
    return options;
}

// Runs a job of the interface with its replies and lines recorded.
template <typename Options>
Outcome with_options(Options options, int (*job)(const Options*), Recorded* recorded) {
    options.reply = record_reply;
    options.log = record_line;
    options.user = recorded;
    Outcome outcome;
    outcome.result = job(&options);
    outcome.replies = recorded->replies;
    return outcome;
}

inline Outcome export_with(const NQ360_EXPORT_OPTIONS& options, Recorded* recorded) {
    return with_options(options, NQ360_export_with, recorded);
}
inline Outcome export_with(const NQ360_EXPORT_OPTIONS& options) {
    Recorded recorded;
    return export_with(options, &recorded);
}

}  // namespace test_support
