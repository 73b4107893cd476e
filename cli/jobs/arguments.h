// Arguments that are more than a number or a name. The parsers throw std::invalid_argument with a text that
// says what is expected.
#pragma once

#include <array>
#include <optional>
#include <string>

#include "nq360.h"

struct Size {
    int width = 0;
    int height = 0;
};

// One of the shares of a movie that several machines make.
struct Share {
    int number = 0;  // 1 to count
    int count = 0;
};

// Of one lens's planes: offsets, and factors.
using Correction = std::array<int, 3>;
using Gains = std::array<double, 3>;
constexpr Correction kNoCorrection = {CORRECT_NONE, CORRECT_NONE, CORRECT_NONE};
constexpr Gains kNoGains = {1, 1, 1};

std::optional<Size> parse_size(const std::string& text);       // "3840x1920"
std::optional<double> parse_seconds(const std::string& text);  // "90", "1:30", "0:01:30.5"
Correction parse_correction(const std::string& text);          // "6,-2,-": a number or - for each of Y, U, V
Gains parse_gains(const std::string& text);                    // "1.2,1,-", or one for all three
double parse_degrees(const std::string& text);
double parse_look(const std::string& text);                    // degrees, at most once around
std::optional<double> parse_feather(const std::string& text);  // degrees
std::optional<int> parse_quality(const std::string& text);
std::optional<int> parse_jobs(const std::string& text);
Share parse_share(const std::string& text);         // "2/7"
long long parse_bit_rate(const std::string& text);  // "20M", "800k", "20000000"
int parse_sound(const std::string& text);           // "1", "2", "none": 0, 1, -1

std::string correction_text(const Correction& correction);
std::string gains_text(const Gains& gains);

// A number as an argument is written: no more digits than it has.
std::string number_text(double number);
