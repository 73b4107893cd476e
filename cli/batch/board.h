// How far a batch is: one bar over all shots on a terminal, a line a shot elsewhere. May be called from any thread.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

class Board {
  public:
    // `work` is what each shot takes, in any unit; 0 of those that are not to be made.
    Board(std::vector<double> work, bool shows_lines);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    void begin(size_t shot, const std::string& name);
    void advance(size_t shot, double share);  // of this shot, 0 to 1

    // `line` is what there is to say of it.
    void finish(size_t shot, const std::string& line);
    void fail(size_t shot, const std::string& why);
    void stop(size_t shot);  // it was neither made nor did it fail

    void tell(const std::string& notice);
    void print(const std::string& line);

  private:
    using Clock = std::chrono::steady_clock;

    void end(size_t shot);
    void forget(size_t shot);
    void draw(bool now);
    std::string figures(double share) const;

    std::mutex mutex_;
    const std::vector<double> work_;
    std::vector<double> shares_;
    const bool shows_lines_;
    const double total_;
    const size_t count_;  // of those to be made
    size_t ended_ = 0;
    std::vector<std::pair<size_t, std::string>> current_;  // those begun, the newest one last
    const Clock::time_point begun_ = Clock::now();
    Clock::time_point drawn_{};
};
