#include "base/log_sink.h"

#include <utility>

namespace {

thread_local const LogSink::Sink* current_sink = nullptr;

}  // namespace

LogSink::LogSink(Sink sink) : sink_(std::move(sink)), before_(current_sink) {
    if (sink_) {
        current_sink = &sink_;
    }
}

LogSink::~LogSink() {
    current_sink = before_;
}

const LogSink::Sink* LogSink::current() {
    return current_sink;
}
