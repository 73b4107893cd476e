#include "api/options.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <sstream>
#include <utility>
#include <vector>

#include "media/share_header.h"

namespace {

// Collects the first fault of a record.
class Check {
  public:
    template <typename Record>
    void size(const Record& record) {
        if (record.size != sizeof(Record)) {
            note("size", "must be " + std::to_string(sizeof(Record)) + ", as init sets it",
                 std::to_string(record.size));
        }
    }

    void number(const char* field, double value) {
        if (!std::isfinite(value)) {
            note(field, "must be a finite number", text(value));
        }
    }

    template <typename Number>
    void range(const char* field, Number value, Number least, Number most) {
        if (!(value >= least && value <= most)) {  // NaN is neither
            note(field, "must be " + text(least) + " to " + text(most), text(value));
        }
    }

    // As FFmpeg counts: its pictures have margins.
    void pixels(int64_t width, int64_t height) {
        if ((width + 128) * (height + 128) >= INT32_MAX / 8) {
            note("width", "with the height, at most about 268 million pixels can be held",
                 text(width) + " x " + text(height));
        }
    }

    void flag(const char* field, int value) { range(field, value, 0, 1); }

    const std::string& fault() const { return fault_; }

  private:
    void note(const std::string& field, const std::string& rule, const std::string& value) {
        if (fault_.empty()) {
            fault_ = field + ": " + rule + ", not " + value;
        }
    }

    template <typename Number>
    static std::string text(Number value) {
        std::ostringstream stream;
        stream.imbue(std::locale::classic());
        stream << value;
        return stream.str();
    }

    std::string fault_;
};

void check_look(const NQ360_EXPORT_OPTIONS& options, Check* check) {
    check->size(options);
    const std::pair<const char*, double> any[] = {
        {"angle", options.angle}, {"turn1", options.turn1},   {"turn2", options.turn2}, {"start1", options.start1},
        {"end1", options.end1},   {"start2", options.start2}, {"end2", options.end2}};
    for (const auto& [field, value] : any) {
        check->number(field, value);
    }
    const std::pair<const char*, double> turns[] = {
        {"yaw", options.yaw}, {"pitch", options.pitch}, {"roll", options.roll}};
    for (const auto& [field, value] : turns) {
        check->range(field, value, -360.0, 360.0);
    }
    for (int plane = 0; plane < 3; ++plane) {
        check->range("gain1", options.gain1[plane], 0.0, 16.0);
        check->range("gain2", options.gain2[plane], 0.0, 16.0);
    }
    check->range("feather", options.feather, 0.0, 5.5);
    check->range("quality", options.quality, 0, 100);
    check->flag("filter", options.filter);
    // A side of 0 stands for the usual size only where both are.
    if (options.width != 0 || options.height != 0) {
        check->range("width", options.width, 2, 32766);
        check->range("height", options.height, 2, 32766);
        check->pixels(options.width, options.height);
    }
}

}  // namespace

std::string fault_of_look(const NQ360_EXPORT_OPTIONS& options) {
    Check check;
    check_look(options, &check);
    return check.fault();
}

std::string fault_of(const NQ360_EXPORT_OPTIONS& options) {
    Check check;
    check_look(options, &check);
    check.range("audio_source", options.audio_source, -1, 1);
    check.range("sound_codec", options.sound_codec, 0, 1);
    check.range("bit_rate", options.bit_rate, 0LL, 288000000LL);
    check.flag("keep_metadata", options.keep_metadata);
    check.flag("web", options.web);
    check.range("workers", options.workers, -1, 256);
    check.range("parts", options.parts, 0, kMostShares);
    check.range("part", options.part, std::min(options.parts, 1), options.parts);
    check.flag("whole_inputs_only", options.whole_inputs_only);
    return check.fault();
}

std::string fault_of(const NQ360_ANALYZE_OPTIONS& options) {
    Check check;
    check.size(options);
    check.range("thumbnail_width", options.thumbnail_width, 0, 32766);
    check.flag("thumbnail_always", options.thumbnail_always);
    check.flag("quick", options.quick);
    return check.fault();
}

std::string fault_of(const NQ360_AUDIO_OPTIONS& options) {
    Check check;
    check.size(options);
    check.range("sound_codec", options.sound_codec, 0, 1);
    if (options.bit_rate != 0) {
        check.range("bit_rate", options.bit_rate, 8000LL, 512000LL);
    }
    return check.fault();
}

std::string fault_of(const NQ360_JOIN_OPTIONS& options) {
    Check check;
    check.size(options);
    if (!options.files) {
        return check.fault().empty() ? "files: must not be null" : check.fault();
    }
    check.range("file_count", options.file_count, size_t{1}, size_t{100000});
    return check.fault();
}

void NQ360_export_options_init(NQ360_EXPORT_OPTIONS* options) {
    if (!options) {
        return;
    }
    *options = NQ360_EXPORT_OPTIONS();
    options->size = sizeof(*options);
    for (int plane = 0; plane < 3; ++plane) {
        options->correct1[plane] = options->correct2[plane] = CORRECT_NONE;
        options->gain1[plane] = options->gain2[plane] = 1;
    }
    options->end1 = options->end2 = 3600;
}

void NQ360_analyze_options_init(NQ360_ANALYZE_OPTIONS* options) {
    if (options) {
        *options = NQ360_ANALYZE_OPTIONS();
        options->size = sizeof(*options);
    }
}

void NQ360_audio_options_init(NQ360_AUDIO_OPTIONS* options) {
    if (options) {
        *options = NQ360_AUDIO_OPTIONS();
        options->size = sizeof(*options);
    }
}

void NQ360_join_options_init(NQ360_JOIN_OPTIONS* options) {
    if (options) {
        *options = NQ360_JOIN_OPTIONS();
        options->size = sizeof(*options);
    }
}
