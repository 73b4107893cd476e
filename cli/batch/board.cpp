#include "batch/board.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "terminal/console.h"
#include "terminal/progress.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kBetweenDrawings = 50ms;

}  // namespace

Board::Board(std::vector<double> work, bool shows_lines)
    : work_(std::move(work)),
      shares_(work_.size()),
      shows_lines_(shows_lines),
      total_(std::accumulate(work_.begin(), work_.end(), 0.0)),
      count_(static_cast<size_t>(std::count_if(work_.begin(), work_.end(), [](double one) { return one > 0; }))) {}

Board::~Board() {
    console().erase_status();
}

void Board::begin(size_t shot, const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    current_.emplace_back(shot, printable(name));
    draw(true);
}

void Board::advance(size_t shot, double share) {
    const std::lock_guard<std::mutex> lock(mutex_);
    shares_[shot] = std::clamp(share, 0.0, 1.0);
    draw(false);
}

void Board::finish(size_t shot, const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    end(shot);
    if (shows_lines_) {
        console().print(line + "\n");
    }
    draw(true);
}

void Board::fail(size_t shot, const std::string& why) {
    const std::lock_guard<std::mutex> lock(mutex_);
    end(shot);
    console().complain(why);
    draw(true);
}

void Board::stop(size_t shot) {
    const std::lock_guard<std::mutex> lock(mutex_);
    forget(shot);
}

void Board::tell(const std::string& notice) {
    const std::lock_guard<std::mutex> lock(mutex_);
    console().tell(notice);
}

void Board::print(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    console().print(line);
}

void Board::end(size_t shot) {
    forget(shot);
    shares_[shot] = 1;
    ended_ += work_[shot] > 0 ? 1 : 0;
}

void Board::forget(size_t shot) {
    const auto is_this = [shot](const auto& one) { return one.first == shot; };
    current_.erase(std::remove_if(current_.begin(), current_.end(), is_this), current_.end());
}

void Board::draw(bool now) {
    if (!console().has_status_line() || total_ <= 0) {
        return;
    }
    const auto time = Clock::now();
    if (!now && time - drawn_ < kBetweenDrawings) {
        return;
    }
    drawn_ = time;
    const double share = std::inner_product(work_.begin(), work_.end(), shares_.begin(), 0.0) / total_;
    const std::string name = current_.empty() ? "" : ", " + current_.back().second;
    console().draw_status(bar_text(share, figures(share), name));
}

// "12/300 shots, 0:05 left"
std::string Board::figures(double share) const {
    std::string text = std::to_string(ended_) + "/" + std::to_string(count_) + " shots";
    if (share > 0) {
        const double elapsed = std::chrono::duration<double>(Clock::now() - begun_).count();
        text += ", " + clock_text(std::ceil(elapsed / share * (1 - share))) + " left";
    }
    return text;
}
