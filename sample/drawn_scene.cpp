// A scene computed from formulas, so that it is the same at every size: all edges are soft and a quarter of a degree
// wide or more, which the smallest lens picture still resolves.
#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "sample/lens.h"
#include "sample/scene.h"

namespace sample {
namespace {

struct Colour {
    float r, g, b;
};

constexpr Colour kWhite{1, 1, 1};
constexpr Colour kBlack{0, 0, 0};

Colour mix(Colour under, Colour over, float share) {
    return {under.r + share * (over.r - under.r), under.g + share * (over.g - under.g),
            under.b + share * (over.b - under.b)};
}

// 1 up to `full`, 0 from `none` on, smooth between them.
float fade(float distance, float full, float none) {
    const float t = std::clamp((none - distance) / (none - full), 0.0f, 1.0f);
    return t * t * (3 - 2 * t);
}

uint8_t to_byte(float value) {
    return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0f, 255.0f)));
}

cv::Vec3b to_yuv(Colour colour) {
    const float r = 255 * std::clamp(colour.r, 0.0f, 1.0f);
    const float g = 255 * std::clamp(colour.g, 0.0f, 1.0f);
    const float b = 255 * std::clamp(colour.b, 0.0f, 1.0f);
    const float y = 0.299f * r + 0.587f * g + 0.114f * b;
    return {to_byte(y), to_byte((b - y) / 1.772f + 128), to_byte((r - y) / 1.402f + 128)};
}

// ---- Ground: gradients and waves ----

struct Wave {
    int around;  // whole waves in 360 degrees of longitude, so that the ends meet
    double down;
    double phase;
    float height;
};
constexpr std::array<Wave, 5> kWaves{{{5, 3.0, 0.4, 0.08f},
                                      {13, 9.5, 1.3, 0.05f},
                                      {31, 23.0, 2.6, 0.04f},
                                      {61, 47.0, 0.9, 0.03f},
                                      {113, 90.0, 2.1, 0.03f}}};

// What the columns of a picture have in common.
struct Column {
    float cosine, sine;
    std::array<float, kWaves.size()> wave;
    float meridian;         // sine of the way to the nearest meridian of the graticule
    float quarter;          // the same to the nearest of the four coloured meridians
    Colour quarter_colour;  // of that one
};

Colour colour_of_quarter(int index) {
    constexpr std::array<Colour, 4> colours{{{1, 0.9f, 0.1f}, {0.9f, 0.1f, 0.1f}, kBlack, {0.1f, 0.7f, 0.2f}}};
    return colours[static_cast<size_t>(((index % 4) + 4) % 4)];
}

std::vector<Column> make_columns(int width, double turn) {
    std::vector<Column> columns(static_cast<size_t>(width));
    for (int x = 0; x < width; ++x) {
        Column& column = columns[static_cast<size_t>(x)];
        const double longitude = std::remainder(x * 2 * kPi / width - kPi + turn, 2 * kPi);
        column.cosine = static_cast<float>(std::cos(longitude));
        column.sine = static_cast<float>(std::sin(longitude));
        for (size_t i = 0; i < kWaves.size(); ++i) {
            column.wave[i] =
                kWaves[i].height * static_cast<float>(std::sin(kWaves[i].around * longitude + kWaves[i].phase));
        }
        const double quarter = std::round(longitude / (90 * kDegree));
        column.meridian = static_cast<float>(std::sin(std::remainder(longitude, 15 * kDegree)));
        column.quarter = static_cast<float>(std::sin(std::remainder(longitude, 90 * kDegree)));
        column.quarter_colour = colour_of_quarter(static_cast<int>(quarter));
    }
    return columns;
}

// What the pixels of one row have in common.
struct Row {
    float cosine, sine;
    std::array<float, kWaves.size()> wave;
    float parallel;   // share of the parallel's colour
    float equator;    // share of the equator's colour
    float meridians;  // how strong the meridians are: they fade out before they run together at the poles
};

Row make_row(int y, int height) {
    const double colatitude = y * kPi / height;
    const double latitude = 90 - colatitude / kDegree;
    Row row{};
    row.cosine = static_cast<float>(std::cos(colatitude));
    row.sine = static_cast<float>(std::sin(colatitude));
    for (size_t i = 0; i < kWaves.size(); ++i) {
        const float calm_poles = row.sine * row.sine * row.sine * row.sine;
        row.wave[i] = calm_poles * static_cast<float>(std::cos(kWaves[i].down * colatitude + kWaves[i].phase));
    }
    const auto off_parallel = static_cast<float>(std::abs(std::remainder(latitude, 15.0)));
    row.parallel = std::abs(latitude) > 82 ? 0 : 0.6f * fade(off_parallel, 0.12f, 0.4f);
    row.equator = 0.8f * fade(static_cast<float>(std::abs(latitude)), 0.2f, 0.55f);
    row.meridians = 0.6f * fade(static_cast<float>(std::abs(latitude)), 70, 75);
    return row;
}

Colour ground_at(const Row& row, const Column& column) {
    const float x = row.sine * column.cosine;
    const float y = row.sine * column.sine;
    const float z = row.cosine;
    float waves = 0;
    for (size_t i = 0; i < kWaves.size(); ++i) {
        waves += row.wave[i] * column.wave[i];
    }
    return {0.5f + 0.28f * x - 0.05f * z + waves, 0.5f + 0.2f * y + 0.1f * z + waves,
            0.5f + 0.3f * z - 0.1f * x + waves};
}

Colour with_graticule(Colour colour, const Row& row, const Column& column) {
    constexpr auto degrees = static_cast<float>(1 / kDegree);
    const float off_meridian = std::abs(row.sine * column.meridian) * degrees;
    const float off_quarter = std::abs(row.sine * column.quarter) * degrees;
    colour = mix(colour, kWhite, std::max(row.parallel, row.meridians * fade(off_meridian, 0.12f, 0.4f)));
    colour = mix(colour, {1, 0.5f, 0}, row.equator);
    return mix(colour, column.quarter_colour, row.meridians / 0.6f * 0.8f * fade(off_quarter, 0.2f, 0.55f));
}

// ---- Labels ----

struct Point {
    float x, y;
};
struct Stroke {
    Point from, to;
};

// Strokes between points of a grid 2 wide and 4 high, column and row of each as digits; a blank lifts the pen.
const char* glyph(char character) {
    switch (character) {
        case '0':
            return "0020240400";
        case '1':
            return "101403";
        case '2':
            return "042422020020";
        case '3':
            return "04242000 0222";
        case '4':
            return "040222 2420";
        case '5':
            return "240402222000";
        case '6':
            return "240400202202";
        case '7':
            return "042410";
        case '8':
            return "0020240400 0222";
        case '9':
            return "002024040222";
        case 'N':
            return "00042024";
        case 'S':
            return "240403212000";
        case 'E':
            return "24040020 0212";
        case 'W':
            return "0400122024";
        case 'U':
            return "04002024";
        case 'P':
            return "0004242202";
        case 'D':
            return "00041423211000";
        case 'O':
            return "10010314232110";
        default:
            return "";
    }
}

// Degrees.
constexpr float kGrid = 0.75f;
constexpr float kAdvance = 2.4f;
constexpr float kLineHeight = 4.2f;
constexpr float kReach = 7;  // no stroke or rim is farther from the label's middle

void add_line(std::vector<Stroke>& strokes, const std::string& text, float bottom) {
    float left = -(kAdvance * static_cast<float>(text.size() - 1) + 2 * kGrid) / 2;
    for (const char character : text) {
        const std::string pen = glyph(character);
        for (size_t i = 0; i + 3 < pen.size(); i += 2) {
            if (pen[i + 2] == ' ') {
                ++i;
                continue;
            }
            const auto at = [&](size_t k) {
                return Point{left + kGrid * static_cast<float>(pen[k] - '0'),
                             bottom + kGrid * static_cast<float>(pen[k + 1] - '0')};
            };
            strokes.push_back({at(i), at(i + 2)});
        }
        left += kAdvance;
    }
}

// A text on the sphere, laid out in the plane that touches it at the label's middle.
struct Label {
    Vector middle, right, up;
    double longitude, latitude;  // radians, of the middle
    std::vector<Stroke> strokes;
};

Label make_label(double longitude, double latitude, const std::string& upper, const std::string& lower) {
    const double a = longitude * kDegree;
    const double b = latitude * kDegree;
    Label label{{std::cos(b) * std::cos(a), std::cos(b) * std::sin(a), std::sin(b)},
                {-std::sin(a), std::cos(a), 0},
                {-std::sin(b) * std::cos(a), -std::sin(b) * std::sin(a), std::cos(b)},
                a,
                b,
                {}};
    if (lower.empty()) {
        add_line(label.strokes, upper, -2 * kGrid);
    } else {
        add_line(label.strokes, upper, (kLineHeight - 4 * kGrid) / 2);
        add_line(label.strokes, lower, (kLineHeight - 4 * kGrid) / 2 - kLineHeight);
    }
    return label;
}

std::string signed_text(int degrees, char positive, char negative) {
    if (degrees == 0) {
        return "0";
    }
    return (degrees > 0 ? positive : negative) + std::to_string(std::abs(degrees));
}

std::vector<Label> make_labels() {
    std::vector<Label> labels;
    for (int latitude = -60; latitude <= 60; latitude += 30) {
        for (int longitude = -180; longitude < 180; longitude += 30) {
            const std::string east_west = longitude == -180 ? "180" : signed_text(longitude, 'E', 'W');
            labels.push_back(make_label(longitude, latitude, signed_text(latitude, 'N', 'S'), east_west));
        }
    }
    // At the poles "up" is what is up in the lens pictures.
    labels.push_back(make_label(0, 90, "UP", ""));
    labels.push_back(make_label(180, -90, "DOWN", ""));
    return labels;
}

float squared_distance_to(const Stroke& stroke, Point p) {
    const float dx = stroke.to.x - stroke.from.x;
    const float dy = stroke.to.y - stroke.from.y;
    const float px = p.x - stroke.from.x;
    const float py = p.y - stroke.from.y;
    const float t = std::clamp((px * dx + py * dy) / (dx * dx + dy * dy), 0.0f, 1.0f);
    return (px - t * dx) * (px - t * dx) + (py - t * dy) * (py - t * dy);
}

// White strokes with a dark rim, so that they stand out everywhere.
void draw_label_at(const Label& label, Vector d, Colour& colour) {
    const auto dot = [&](Vector v) { return v.x * d.x + v.y * d.y + v.z * d.z; };
    const double depth = dot(label.middle) * kDegree;
    const Point p{static_cast<float>(dot(label.right) / depth), static_cast<float>(dot(label.up) / depth)};
    if (dot(label.middle) <= 0 || std::abs(p.x) > kReach || std::abs(p.y) > kReach) {
        return;
    }
    float squared = kReach * kReach;
    for (const Stroke& stroke : label.strokes) {
        squared = std::min(squared, squared_distance_to(stroke, p));
    }
    const float distance = std::sqrt(squared);
    colour = mix(colour, kBlack, 0.75f * fade(distance, 0.4f, 0.8f));
    colour = mix(colour, kWhite, fade(distance, 0.12f, 0.42f));
}

// ---- The picture ----

// Half the columns, in radians of longitude, that a label can touch in a row; pi is all of them.
double label_half_width(const Label& label, double latitude) {
    const double reach = 1.5 * kReach * kDegree;  // the corner of the square
    if (std::abs(latitude - label.latitude) > reach) {
        return 0;
    }
    const double highest = std::abs(label.latitude) + reach;
    return highest >= kPi / 2 ? kPi : std::min(kPi, reach / std::cos(highest));
}

class Drawing {
  public:
    Drawing(int width, int height, double turn)
        : picture_(height + 1, width, CV_8UC3),
          height_(height),
          turn_(turn),
          columns_(make_columns(width, turn)),
          labels_(make_labels()) {}

    cv::Mat finish() {
        cv::parallel_for_(cv::Range(0, picture_.rows), [this](const cv::Range& rows) {
            std::vector<Colour> colours(columns_.size());
            for (int y = rows.start; y < rows.end; ++y) {
                draw_row(y, colours);
            }
        });
        return picture_;
    }

  private:
    void draw_row(int y, std::vector<Colour>& colours) {
        const Row row = make_row(y, height_);
        for (size_t x = 0; x < columns_.size(); ++x) {
            colours[x] = with_graticule(ground_at(row, columns_[x]), row, columns_[x]);
        }
        draw_labels(y, row, colours);
        auto* out = picture_.ptr<cv::Vec3b>(y);
        for (size_t x = 0; x < columns_.size(); ++x) {
            out[x] = to_yuv(colours[x]);
        }
    }

    void draw_labels(int y, const Row& row, std::vector<Colour>& colours) const {
        const double latitude = kPi / 2 - y * kPi / height_;
        for (const Label& label : labels_) {
            const double half_width = label_half_width(label, latitude);
            if (half_width == 0) {
                continue;
            }
            const auto width = static_cast<int64_t>(columns_.size());
            const double per_column = 2 * kPi / static_cast<double>(width);
            const auto middle = static_cast<int64_t>(std::lround((label.longitude - turn_ + kPi) / per_column));
            const auto half = std::min(static_cast<int64_t>(std::ceil(half_width / per_column)), width / 2);
            for (int64_t i = middle - half; i < middle + half; ++i) {
                const auto x = static_cast<size_t>(((i % width) + width) % width);
                const Vector d{row.sine * columns_[x].cosine, row.sine * columns_[x].sine, row.cosine};
                draw_label_at(label, d, colours[x]);
            }
        }
    }

    cv::Mat picture_;
    int height_;
    double turn_;
    std::vector<Column> columns_;
    std::vector<Label> labels_;
};

class DrawnScene : public Scene {
  public:
    cv::Mat draw(int width, int height, double turn) const override { return Drawing(width, height, turn).finish(); }
};

}  // namespace

std::unique_ptr<Scene> drawn_scene() {
    return std::make_unique<DrawnScene>();
}

}  // namespace sample
