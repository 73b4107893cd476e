// The answer of an exported function to an exception.
#pragma once

#include "api/reply.h"
#include "base/text_owner.h"
#include "base/thrown_text.h"
#include "nq360.h"

// To be called while an exception is being handled; returns what the function then returns. `make_reply` builds
// the reply around the exception's text. Where there is not even memory for that, `bare_reply` goes out, so that
// every call is answered.
template <typename MakeReply>
int answer_unexpected(NQ360_CALLBACK callback, const char* bare_reply, MakeReply make_reply) {
    if (!callback) {
        return 0;
    }
    TextPtr reply;
    try {
        reply.reset(make_reply(thrown_text().c_str()));
    } catch (...) {
        callback(NQ360_FAILED, bare_reply);
        return -1;
    }
    send_reply(callback, NQ360_FAILED, reply.release());
    return -1;
}
