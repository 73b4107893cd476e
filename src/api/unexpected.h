// The answer of an exported function to an exception.
#pragma once

#include "api/client.h"
#include "base/text_owner.h"
#include "base/thrown_text.h"

// To be called while an exception is being handled. `make_reply` builds the reply around the exception's text. Where
// there is not even memory for that, `bare_reply` goes out, so that every call is answered.
template <typename MakeReply>
void answer_unexpected(const Client& client, const char* bare_reply, MakeReply make_reply) {
    if (!client.listens()) {
        return;
    }
    TextPtr reply;
    try {
        reply.reset(make_reply(thrown_text().c_str()));
    } catch (...) {
        client.tell(NQ360_FAILED, bare_reply);
        return;
    }
    client.send(NQ360_FAILED, reply.release());
}
