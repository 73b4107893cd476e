#include "terminal/progress.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "terminal/console.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kBetweenDrawings = 50ms;
constexpr int64_t kLines = 10;  // of a whole job, where there is no terminal
constexpr int kLeastBar = 10;   // columns; without room for them there is no bar
constexpr int kMostBar = 40;

}  // namespace

Progress::Progress(std::string unit, bool lines) : unit_(std::move(unit)), lines_(lines) {}

Progress::~Progress() {
    console().erase_status();
}

void Progress::begin(int64_t total) {
    total_ = std::max<int64_t>(total, 0);
    next_line_ = std::max<int64_t>(total_ / kLines, 1);
    begun_ = Clock::now();
    advance(0);
}

void Progress::advance(int64_t done) {
    if (console().has_status_line()) {
        const auto now = Clock::now();
        if (now - drawn_ >= kBetweenDrawings) {
            drawn_ = now;
            console().draw_status(bar(done));
        }
    } else if (lines_ && line_is_due(done)) {
        console().tell(figures(done));
    }
}

double Progress::seconds() const {
    return std::chrono::duration<double>(Clock::now() - begun_).count();
}

bool Progress::line_is_due(int64_t done) {
    if (done < next_line_) {
        return false;
    }
    const int64_t step = std::max<int64_t>(total_ / kLines, 1);
    next_line_ = total_ > 0 ? (done / step + 1) * step : 2 * done;
    return true;
}

// "120/300 frames, 31.2/s, 0:05 left"
std::string Progress::figures(int64_t done) const {
    std::string text = std::to_string(done);
    if (total_ > 0) {
        text += "/" + std::to_string(std::max(total_, done));  // a few more may come than were announced
    }
    text += " " + unit_;
    const double elapsed = seconds();
    if (done > 0 && elapsed > 0) {
        const double speed = static_cast<double>(done) / elapsed;
        text += ", " + decimal_text(speed) + "/s";
        if (total_ > 0) {
            text += ", " + clock_text(std::ceil(static_cast<double>(std::max<int64_t>(total_ - done, 0)) / speed)) +
                    " left";
        }
    }
    return text;
}

std::string Progress::bar(int64_t done) const {
    const std::string text = figures(done);
    if (total_ <= 0) {
        return fitted(text, console().columns() - 1);
    }
    return bar_text(static_cast<double>(done) / static_cast<double>(total_), text);
}

std::string bar_text(double share, const std::string& figures, const std::string& name) {
    const double held = std::clamp(share, 0.0, 1.0);
    char percent[16];
    std::snprintf(percent, sizeof(percent), "%3d %% ", static_cast<int>(held * 100));
    // Two brackets, a blank after them, and the last column, where some terminals would begin a new line.
    const int columns = console().columns();
    const int room = columns - static_cast<int>(display_width(percent + figures)) - 4;
    const std::string shown = fitted(name, std::max(room - kLeastBar, 0));
    const int width = std::min(room - static_cast<int>(display_width(shown)), kMostBar);
    if (width < kLeastBar) {
        return fitted(percent + figures, columns - 1);
    }
    const int filled = static_cast<int>(held * width);
    const std::string full(static_cast<size_t>(filled), '#');
    const std::string rest(static_cast<size_t>(width - filled), '.');
    const bool colored = console().colored();
    return std::string(percent) + "[" + (colored ? "\033[32m" : "") + full + (colored ? "\033[0m" : "") + rest + "] " +
           figures + shown;
}

std::string clock_text(double seconds) {
    const auto whole = static_cast<long long>(std::clamp(seconds, 0.0, 1e9));
    char text[64];
    if (whole >= 3600) {
        std::snprintf(text, sizeof(text), "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
    } else {
        std::snprintf(text, sizeof(text), "%lld:%02lld", whole / 60, whole % 60);
    }
    return text;
}

std::string decimal_text(double value) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.1f", value);
    return std::string(text) == "-0.0" ? "0.0" : text;
}
