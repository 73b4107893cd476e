// How far a long job is: a bar on a terminal, now and then a line elsewhere.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

class Progress {
  public:
    // `unit` is what is counted ("frames"). Without `lines` nothing is shown where there is no terminal.
    explicit Progress(std::string unit, bool lines = true);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void begin(int64_t total);  // 0: not known
    void advance(int64_t done);
    double seconds() const;  // since the job began

  private:
    using Clock = std::chrono::steady_clock;

    std::string figures(int64_t done) const;
    std::string bar(int64_t done) const;
    bool line_is_due(int64_t done);

    std::string unit_;
    bool lines_;
    int64_t total_ = 0;
    int64_t next_line_ = 0;
    Clock::time_point begun_ = Clock::now();
    Clock::time_point drawn_{};
};

// A bar and its figures, fitted to the terminal; `name` stands behind them as far as there is room.
std::string bar_text(double share, const std::string& figures, const std::string& name = "");

// "0:07", "12:34" or "1:02:03".
std::string clock_text(double seconds);

// With one decimal.
std::string decimal_text(double value);
