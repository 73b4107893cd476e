// Calls of the exported functions with a callback that remembers what it is told.
#pragma once

#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "nq360.h"

namespace test_support {

struct Reply {
    NQ360_STATE state;
    std::string text;

    // Throws when the text is not JSON.
    nlohmann::json json() const { return nlohmann::json::parse(text); }
};

inline bool operator==(const Reply& a, const Reply& b) {
    return a.state == b.state && a.text == b.text;
}

inline std::ostream& operator<<(std::ostream& out, const Reply& reply) {
    return out << reply.state << " " << reply.text;
}

namespace replies_detail {

// The callback has no argument to carry these; calls of several threads do not share them.
inline thread_local std::vector<Reply> received;
inline thread_local std::function<void(const Reply&)> on_reply;

inline void receive(NQ360_STATE state, const char* json) {
    received.push_back({state, json});
    if (on_reply) {
        on_reply(received.back());
    }
}

}  // namespace replies_detail

// A callback that allocates nothing, for tests in which allocations fail: it keeps the reply that ended the call.
struct LastReply {
    int ends = 0;
    NQ360_STATE state = NQ360_STARTED;
    char text[10240] = "";
};
inline LastReply last_reply;

inline void keep_last(NQ360_STATE state, const char* json) {
    last_reply.ends += state >= NQ360_FINISHED ? 1 : 0;
    last_reply.state = state;
    std::strcpy(last_reply.text, json);
}

// What one call returned and replied.
struct Outcome {
    int result = 0;
    std::vector<Reply> replies;

    // The reply that ended the operation: the only one of its kind, and the last.
    Reply end() const {
        size_t ends = 0;
        for (const Reply& reply : replies) {
            ends += reply.state >= NQ360_FINISHED ? 1 : 0;
        }
        EXPECT_EQ(ends, 1u) << "replies that end the operation";
        if (replies.empty() || replies.back().state < NQ360_FINISHED) {
            ADD_FAILURE() << "the last reply does not end the operation";
            return {NQ360_STARTED, "{}"};
        }
        return replies.back();
    }
    NQ360_STATE state() const { return end().state; }
    std::string text() const { return end().text; }
    nlohmann::json json() const { return end().json(); }
};

// `call` gets the callback to hand on and returns the function's result. `on_reply` is told of each reply while
// the call waits.
template <typename Call>
Outcome recorded(Call&& call, std::function<void(const Reply&)> on_reply = nullptr) {
    replies_detail::received.clear();
    replies_detail::on_reply = std::move(on_reply);
    Outcome outcome;
    outcome.result = call(&replies_detail::receive);
    outcome.replies = std::move(replies_detail::received);
    replies_detail::received.clear();
    replies_detail::on_reply = nullptr;
    return outcome;
}

inline Outcome analyze(const char* input, const char* thumbnail, int thumbnail_width = 0, int write_flag = 1) {
    return recorded([&](NQ360_CALLBACK callback) {
        return NQ360_analyze_image(input, thumbnail, thumbnail_width, write_flag, callback);
    });
}

inline Outcome analyze(const std::string& input) {
    return analyze(input.c_str(), nullptr, 0, 0);
}

inline Outcome analyze(const std::string& input, const std::string& thumbnail, int thumbnail_width = 0,
                       int write_flag = 1) {
    return analyze(input.c_str(), thumbnail.c_str(), thumbnail_width, write_flag);
}

// The arguments of an export, with those that most tests do not care about. The texts are borrowed.
struct ExportCall {
    const char* movie1 = nullptr;
    const char* movie2 = nullptr;
    const char* output = nullptr;
    const char* band = nullptr;
    int width = 720;
    int height = 360;
    int angle = 0;
    int correction1[3] = {CORRECT_NONE, CORRECT_NONE, CORRECT_NONE};
    int correction2[3] = {CORRECT_NONE, CORRECT_NONE, CORRECT_NONE};
    int audio_source = -1;
    const char* datetime = "2026:01:02 03:04:05";
    const char* cancel = nullptr;
    float angle1 = 0;
    float angle2 = 0;
    float start1 = 0;
    float start2 = 0;
    float end1 = 1000;
    float end2 = 1000;

    int run_with(NQ360_CALLBACK callback) const {
        return NQ360_export(movie1, movie2, output, band, width, height, angle, correction1[0], correction1[1],
                            correction1[2], correction2[0], correction2[1], correction2[2], audio_source, datetime,
                            cancel, callback, angle1, angle2, start1, start2, end1, end2);
    }
    Outcome run(std::function<void(const Reply&)> on_reply = nullptr) const {
        return recorded([this](NQ360_CALLBACK callback) { return run_with(callback); }, std::move(on_reply));
    }
};

inline Outcome get_audio(const char* movie, const char* audio, const char* cancel = nullptr,
                         std::function<void(const Reply&)> on_reply = nullptr) {
    return recorded([&](NQ360_CALLBACK callback) { return NQ360_get_audio(movie, audio, 0, cancel, callback); },
                    std::move(on_reply));
}

// The texts of the error replies, as they stand for a caller to compare.
inline std::string error1(int errnum, const std::string& errstr, const std::string& movie_path, int api_errnum = -1,
                          const std::string& api_errstr = "") {
    return R"({"errnum":")" + std::to_string(errnum) + R"(","errstr":")" + errstr + R"(","api_errnum":)" +
           std::to_string(api_errnum) + R"(,"api_errstr":")" + api_errstr + R"(","movie_path":")" + movie_path +
           R"("})";
}

inline std::string error2(int errnum, const std::string& errstr, const std::string& movie_path,
                          const std::string& audio_path, int api_errnum = -1, const std::string& api_errstr = "") {
    const std::string one = error1(errnum, errstr, movie_path, api_errnum, api_errstr);
    return one.substr(0, one.size() - 1) + R"(,"audio_path":")" + audio_path + R"("})";
}

inline std::string error3(int errnum, const std::string& errstr, const std::string& movie1, const std::string& movie2,
                          const std::string& output, int api_errnum = -1, const std::string& api_errstr = "") {
    return R"({"errnum":")" + std::to_string(errnum) + R"(","errstr":")" + errstr + R"(","api_errnum":)" +
           std::to_string(api_errnum) + R"(,"api_errstr":")" + api_errstr + R"(","movie_path1":")" + movie1 +
           R"(","movie_path2":")" + movie2 + R"(","export_path":")" + output + R"("})";
}

}  // namespace test_support
