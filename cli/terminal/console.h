// What the command says to people: results on the standard output stream; messages and a status line, which
// stands at the foot of a terminal and is drawn anew, on the standard error stream. The library logs to the
// latter too: that goes nowhere unless it is asked for.
#pragma once

#include <string>
#include <string_view>

enum class Loudness { kQuiet, kNormal, kVerbose };

class Console {
  public:
    // From now on the descriptor of the standard error stream belongs to the library; kVerbose shows its log.
    void begin(Loudness loudness);

    // A result. Throws ClosedPipe when nobody reads it any more and CommandError when it cannot be written.
    void print(std::string_view text);

    // A line about what happens; kQuiet leaves it out.
    void tell(std::string_view text);

    // A line about what went wrong.
    void complain(std::string_view text);

    // Whether there is a terminal to draw a status line on.
    bool has_status_line() const;
    void draw_status(std::string text);
    void erase_status() { draw_status({}); }
    int columns() const;  // of that terminal

    bool quiet() const { return loudness_ == Loudness::kQuiet; }
    bool colored() const;
    int descriptor() const { return messages_; }

  private:
    void write_message(std::string_view text) const;
    void show_status() const;
    void hide_status() const;

    Loudness loudness_ = Loudness::kNormal;
    int messages_ = 2;  // descriptor of the standard error stream that began with the process
    std::string status_;
};

Console& console();

// Text that may come out of a file or be a file's name, as it can be shown: control characters, which could
// steer the terminal, and bytes that are not UTF-8 are replaced.
std::string printable(std::string_view text);

// Characters of a printable text.
size_t display_width(std::string_view text);

// A column of a table.
std::string padded(const std::string& text, size_t width);

// The text, or as much of its beginning as fits.
std::string fitted(std::string_view text, int columns);
