#include "base/log.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "base/log_sink.h"

namespace {

int hand_over(const LogSink::Sink& sink, int level, const char* format, va_list arguments) {
    va_list measured;
    va_copy(measured, arguments);
    const int length = vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string line(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    vsnprintf(line.data(), line.size() + 1, format, arguments);
    sink(level, line.c_str());
    return '\n';
}

int print(const char* format, va_list arguments) {
    flockfile(stderr);  // so that the lines of two threads do not mix
    vfprintf(stderr, format, arguments);
    const int result = fputc('\n', stderr);
    funlockfile(stderr);
    return result;
}

}  // namespace

int nq360_log(int level, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const LogSink::Sink* sink = LogSink::current();
    const int result = sink ? hand_over(*sink, level, format, arguments) : print(format, arguments);
    va_end(arguments);
    return result;
}

void nq360_set_log_level(int /*level*/) {}
