// The caller of a job: whom its replies go to, whichever interface it came by.
#pragma once

#include "base/log_sink.h"
#include "base/progress.h"
#include "nq360.h"

class Client {
  public:
    explicit Client(NQ360_CALLBACK callback) : callback_(callback) {}
    Client(NQ360_REPLY reply, void* user) : reply_(reply), user_(user) {}

    bool listens() const { return callback_ || reply_; }

    // Hands the text over as it is. Whether the caller wants the job to stop.
    bool tell(NQ360_STATE state, const char* json) const;

    // The same for a reply from malloc, which is freed.
    bool send(NQ360_STATE state, const char* reply) const;

  private:
    NQ360_CALLBACK callback_ = nullptr;
    NQ360_REPLY reply_ = nullptr;
    void* user_ = nullptr;
};

// Where the log lines of a call go by its record; empty: where they always go.
LogSink::Sink log_of(NQ360_LOG log, void* user);
