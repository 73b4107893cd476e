#include "api/client.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "api/reply.h"
#include "base/log.h"
#include "support/command.h"
#include "support/replies.h"

using namespace test_support;

namespace {

struct Heard {
    int answer = 0;
    std::vector<std::string> texts;
};

int hear(NQ360_STATE state, const char* json, void* user) {
    auto* heard = static_cast<Heard*>(user);
    heard->texts.push_back(std::to_string(state) + " " + json);
    return heard->answer;
}

}  // namespace

TEST(Client, OfTheCallbackIsSentEachReplyOnce) {
    const Outcome outcome = recorded([](NQ360_CALLBACK callback) {
        const Client client(callback);
        EXPECT_TRUE(client.listens());
        EXPECT_FALSE(client.send(NQ360_CANCELLED, make_json_result2("m", "a", NQ360_CANCELLED, 3)));
        return 0;
    });
    const Reply expected = {NQ360_CANCELLED, R"({"movie_path":"m","audio_path":"a","frame_count":3})"};
    EXPECT_EQ(outcome.replies, std::vector<Reply>{expected});
}

TEST(Client, OfARecordIsHandedItsUserAndMayStopTheJob) {
    Heard heard;
    const Client client(hear, &heard);
    EXPECT_TRUE(client.listens());
    EXPECT_FALSE(client.tell(NQ360_PROGRESS, "{}"));
    heard.answer = 7;
    EXPECT_TRUE(client.tell(NQ360_PROGRESS, "{}"));
    EXPECT_EQ(heard.texts, (std::vector<std::string>{"1 {}", "1 {}"}));
}

TEST(Client, ThatDoesNotListenIsToldNothing) {
    for (const Client& client : {Client(nullptr), Client(nullptr, nullptr)}) {
        EXPECT_FALSE(client.listens());
        EXPECT_FALSE(client.send(NQ360_FAILED, make_json_errstr1("m", "e", "", 1, -1)));
    }
}

TEST(Client, LogOfARecordHasItsLinesAndTheStreamNone) {
    std::vector<std::string> lines;
    const auto keep = [](int level, const char* line, void* user) {
        static_cast<std::vector<std::string>*>(user)->push_back(std::to_string(level) + line);
    };
    const std::string printed = logged([&] {
        nq360_log(1, "before");
        {
            const LogSink sink(log_of(keep, &lines));
            nq360_log(3, "[tag] %s:%d", "text", 7);
            const LogSink none(log_of(nullptr, nullptr));
            nq360_log(1, "%s", std::string(5000, 'x').c_str());
        }
        nq360_log(1, "after");
    });
    EXPECT_EQ(printed, "before\nafter\n");
    EXPECT_EQ(lines, (std::vector<std::string>{"3[tag] text:7", "1" + std::string(5000, 'x')}));
}
