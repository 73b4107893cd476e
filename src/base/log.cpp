#include "base/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "base/log_sink.h"
#include "base/text_owner.h"

namespace {

// Never throws for want of memory, since nothing that logs expects it: a long line is cut short then.
int hand_over(const LogSink::Sink& sink, int level, const char* format, va_list arguments) {
    char usual[1024];
    va_list measured;
    va_copy(measured, arguments);
    const int length = vsnprintf(usual, sizeof(usual), format, measured);
    va_end(measured);
    const size_t size = length < 0 ? 1 : static_cast<size_t>(length) + 1;
    const TextPtr longer(size > sizeof(usual) ? static_cast<char*>(std::malloc(size)) : nullptr);
    if (longer) {
        vsnprintf(longer.get(), size, format, arguments);
    }
    sink(level, longer ? longer.get() : usual);
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
