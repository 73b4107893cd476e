#include "api/share_texts.h"

#include <charconv>
#include <cstdlib>
#include <initializer_list>

#include "base/fingerprint.h"

namespace {

// So many digits that no two numbers share a text, and the same on machines of other languages.
std::string exact_text(double value) {
    char text[32];
    return {text, std::to_chars(text, text + sizeof(text), value).ptr};
}

template <typename Number>
std::string triple_text(const Number (&values)[3]) {
    std::string text;
    for (const Number value : values) {
        text += (text.empty() ? "" : ",") + exact_text(static_cast<double>(value));
    }
    return text;
}

}  // namespace

void add_options(const NQ360_EXPORT_OPTIONS& options, ShareHeader* header) {
    const std::pair<const char*, double> numbers[] = {
        {"angle", options.angle}, {"yaw", options.yaw},       {"pitch", options.pitch},     {"roll", options.roll},
        {"turn1", options.turn1}, {"turn2", options.turn2},   {"feather", options.feather}, {"start1", options.start1},
        {"end1", options.end1},   {"start2", options.start2}, {"end2", options.end2}};
    header->add("version", NQ360_VERSION);
    for (const auto& [name, value] : numbers) {
        header->add(name, exact_text(value));
    }
    header->add("correct1", triple_text(options.correct1));
    header->add("correct2", triple_text(options.correct2));
    header->add("gain1", triple_text(options.gain1));
    header->add("gain2", triple_text(options.gain2));
    header->add("band", options.band ? fingerprint_of_file(options.band) : "");
    header->add("audio_source", options.audio_source);
    header->add("filter", options.filter);
    header->add("whole_inputs_only", options.whole_inputs_only);
    header->add("datetime", options.datetime ? options.datetime : "");
    header->add("keep_metadata", options.keep_metadata);
    header->add("web", options.web);
}

void add_metadata(const MovieTexts& texts, ShareHeader* header) {
    header->add("time", texts.time ? std::to_string(*texts.time) : "");
    header->add("timestamp", texts.timestamp);
    header->add("location", texts.location);
    header->add("make", texts.make);
    header->add("model", texts.model);
}

// Only a damaged header has such a time.
constexpr int64_t kTimeBound = int64_t{1} << 40;  // seconds

MovieTexts metadata_in(const ShareHeader& header) {
    MovieTexts texts;
    const int64_t time = header.integer("time");
    if (!header.text("time").empty() && std::abs(time) < kTimeBound) {
        texts.time = time;
    }
    texts.timestamp = header.text("timestamp");
    texts.location = header.text("location");
    texts.make = header.text("make");
    texts.model = header.text("model");
    return texts;
}
