#include "terminal/console.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "jobs/errors.h"

namespace {

constexpr const char* kReplacement = "\xEF\xBF\xBD";  // U+FFFD

volatile sig_atomic_t abort_descriptor = 2;

// An assertion of the library says what it found where nobody sees it.
void tell_of_abort(int /*signal*/) {
    constexpr char kText[] = "\nnq360: internal error; --verbose shows what the library says\n";
    const ssize_t written = write(abort_descriptor, kText, sizeof(kText) - 1);
    static_cast<void>(written);
}

bool is_set(const char* variable) {
    const char* value = std::getenv(variable);
    return value && *value;
}

bool is_plain_terminal() {
    const char* kind = std::getenv("TERM");
    return !kind || !*kind || std::strcmp(kind, "dumb") == 0;
}

// Bytes of the UTF-8 character that `text` begins with; 0 when it begins with none.
size_t character_length(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    if (length > text.size()) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const auto second = length > 1 ? static_cast<unsigned char>(text[1]) : 0;
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool outside = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    return overlong || outside ? 0 : length;
}

bool is_control(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    return first < 0x20 || first == 0x7F || (first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
}

}  // namespace

Console& console() {
    static Console instance;
    return instance;
}

void Console::begin(Loudness loudness) {
    loudness_ = loudness;
    if (loudness == Loudness::kVerbose) {
        return;
    }
    const int kept = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (kept >= 0 && nowhere >= 0 && dup2(nowhere, STDERR_FILENO) >= 0) {
        messages_ = kept;
        abort_descriptor = kept;
        std::signal(SIGABRT, tell_of_abort);
    }
    if (nowhere >= 0) {
        close(nowhere);
    }
}

void Console::print(std::string_view text) {
    hide_status();
    errno = 0;
    const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
    if (!written && errno == EPIPE) {
        throw ClosedPipe();
    }
    if (!written) {
        throw CommandError(std::string("the standard output cannot be written: ") + std::strerror(errno));
    }
    show_status();
}

void Console::tell(std::string_view text) {
    if (!quiet()) {
        hide_status();
        write_message(std::string(text) + "\n");
        show_status();
    }
}

void Console::complain(std::string_view text) {
    hide_status();
    const std::string name = colored() ? "\033[1;31mnq360:\033[0m " : "nq360: ";
    write_message(name + std::string(text) + "\n");
    show_status();
}

bool Console::has_status_line() const {
    return loudness_ == Loudness::kNormal && isatty(messages_) && !is_plain_terminal();
}

void Console::draw_status(std::string text) {
    hide_status();
    status_ = std::move(text);
    show_status();
}

int Console::columns() const {
    winsize size = {};
    return ioctl(messages_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

bool Console::colored() const {
    return isatty(messages_) && !is_plain_terminal() && !is_set("NO_COLOR");
}

// Whoever read the messages may have gone: the job goes on without them.
void Console::write_message(std::string_view text) const {
    while (!text.empty()) {
        const ssize_t written = write(messages_, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return;
        }
        text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
    }
}

void Console::show_status() const {
    if (!status_.empty()) {
        write_message(status_);
    }
}

void Console::hide_status() const {
    if (!status_.empty()) {
        write_message("\r\033[K");
    }
}

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const size_t length = character_length(text);
        if (length == 0 || is_control(text.substr(0, length))) {
            result += kReplacement;
        } else {
            result += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

size_t display_width(std::string_view text) {
    size_t width = 0;
    for (const char c : text) {
        width += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }
    return width;
}

std::string padded(const std::string& text, size_t width) {
    const size_t used = display_width(text);
    return text + std::string(used < width ? width - used : 0, ' ') + "  ";
}

std::string fitted(std::string_view text, int columns) {
    std::string result;
    while (!text.empty() && columns-- > 0) {
        const size_t length = std::max<size_t>(character_length(text), 1);
        result += text.substr(0, length);
        text.remove_prefix(length);
    }
    return result;
}
