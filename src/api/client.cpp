#include "api/client.h"

#include "base/text_owner.h"

bool Client::tell(NQ360_STATE state, const char* json) const {
    if (callback_) {
        callback_(state, json);
    }
    return reply_ && reply_(state, json, user_) != 0;
}

bool Client::send(NQ360_STATE state, const char* reply) const {
    const TextPtr owner(const_cast<char*>(reply));
    return tell(state, reply);
}

LogSink::Sink log_of(NQ360_LOG log, void* user) {
    if (!log) {
        return {};
    }
    return [log, user](int level, const char* line) { log(level, line, user); };
}
