// Where the log lines of a job go that does not want them on the standard error stream.
#pragma once

#include <functional>

// While it lives, the calling thread's lines go to `sink`; an empty one leaves them where they go. Log lines are
// written on the thread of the call alone.
class LogSink {
  public:
    using Sink = std::function<void(int level, const char* line)>;

    explicit LogSink(Sink sink);
    ~LogSink();
    LogSink(const LogSink&) = delete;
    LogSink& operator=(const LogSink&) = delete;

    // The calling thread's; null where there is none.
    static const Sink* current();

  private:
    Sink sink_;
    const Sink* before_;
};
