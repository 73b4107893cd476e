#include "adjustments.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>

#include "jobs/arguments.h"
#include "jobs/defaults.h"
#include "jobs/errors.h"
#include "jobs/whole_file.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

constexpr double kWholeMovie = 1e9;  // seconds; the library holds an end to the movie's own
constexpr size_t kMostFile = 65536;  // bytes; what is larger is none of ours

using Setter = std::function<void(const std::string& text, NQ360_EXPORT_OPTIONS* options)>;
using Setters = std::map<std::string, Setter>;

Setter number(double NQ360_EXPORT_OPTIONS::*field, double (*parse)(const std::string&)) {
    return [=](const std::string& text, NQ360_EXPORT_OPTIONS* options) { options->*field = parse(text); };
}

Setter factors(double (NQ360_EXPORT_OPTIONS::*field)[3]) {
    return [=](const std::string& text, NQ360_EXPORT_OPTIONS* options) {
        const Gains gains = parse_gains(text);
        std::copy(gains.begin(), gains.end(), options->*field);
    };
}

Setter offsets(int (NQ360_EXPORT_OPTIONS::*field)[3]) {
    return [=](const std::string& text, NQ360_EXPORT_OPTIONS* options) {
        const Correction correction = parse_correction(text);
        std::copy(correction.begin(), correction.end(), options->*field);
    };
}

int parse_flag(const std::string& text) {
    if (text != "true" && text != "false") {
        throw std::invalid_argument("expected true or false");
    }
    return text == "true" ? 1 : 0;
}

using Options = NQ360_EXPORT_OPTIONS;

const Setters kLook = {
    {"tilt", number(&Options::angle, parse_degrees)},
    {"yaw", number(&Options::yaw, parse_look)},
    {"pitch", number(&Options::pitch, parse_look)},
    {"roll", number(&Options::roll, parse_look)},
    {"turn1", number(&Options::turn1, parse_degrees)},
    {"turn2", number(&Options::turn2, parse_degrees)},
    {"correct1", offsets(&Options::correct1)},
    {"correct2", offsets(&Options::correct2)},
    {"gain1", factors(&Options::gain1)},
    {"gain2", factors(&Options::gain2)},
    {"feather", [](const std::string& text, Options* options) { options->feather = *parse_feather(text); }}};

const Setters kCoding = {
    {"size",
     [](const std::string& text, Options* options) {
         const Size size = *parse_size(text);
         options->width = size.width;
         options->height = size.height;
     }},
    {"quality", [](const std::string& text, Options* options) { options->quality = *parse_quality(text); }},
    {"bit-rate", [](const std::string& text, Options* options) { options->bit_rate = parse_bit_rate(text); }},
    {"sound", [](const std::string& text, Options* options) { options->audio_source = parse_sound(text); }},
    {"aac", [](const std::string& text,
               Options* options) { options->sound_codec = parse_flag(text) ? NQ360_SOUND_AAC : NQ360_SOUND_PCM; }},
    {"web", [](const std::string& text, Options* options) { options->web = parse_flag(text); }},
    {"partial", [](const std::string& text, Options* options) { options->whole_inputs_only = !parse_flag(text); }}};

void apply(const Setters& setters, const Settings& settings, ExportJob* job) {
    for (const auto& [name, set] : setters) {
        const auto found = settings.find(name);
        if (found == settings.end()) {
            continue;
        }
        try {
            set(found->second, &job->options);
        } catch (const std::invalid_argument& wrong) {
            throw std::invalid_argument(name + ": " + wrong.what());
        }
    }
}

double seconds_of(const Settings& settings, const char* name, double otherwise) {
    const auto found = settings.find(name);
    try {
        return found == settings.end() ? otherwise : *parse_seconds(found->second);
    } catch (const std::invalid_argument& wrong) {
        throw std::invalid_argument(std::string(name) + ": " + wrong.what());
    }
}

}  // namespace

void apply_look(const Settings& settings, ExportJob* job) {
    apply(kLook, settings, job);
}

void apply_coding(const Settings& settings, ExportJob* job) {
    apply(kCoding, settings, job);
}

void apply_range(const Settings& settings, ExportJob* job) {
    const double start = seconds_of(settings, "start", 0);
    const double end = seconds_of(settings, "end", kWholeMovie);
    if (end <= start) {
        throw std::invalid_argument("end: does not lie behind the start");
    }
    job->options.start1 = job->options.start2 = start;
    job->options.end1 = job->options.end2 = end;
}

Settings settings_in(const Json& object) {
    if (!object.is_object()) {
        throw std::invalid_argument("expected an object of settings");
    }
    Settings settings;
    for (const auto& [name, value] : object.items()) {
        if (value.is_string()) {
            settings[name] = value.get<std::string>();
        } else if (value.is_number() || value.is_boolean()) {
            settings[name] = value.dump();
        } else {
            throw std::invalid_argument(name + ": expected a text, a number, true or false");
        }
    }
    return settings;
}

bool is_choice(const std::string& name) {
    return name == "start" || name == "end" || kCoding.count(name) > 0;
}

bool is_look(const std::string& name) {
    return name == "band" || kLook.count(name) > 0;
}

Settings matched_look(const Settings& before, const ExportJob& job) {
    const Options& options = job.options;
    Settings settings = before;
    const auto set = [&settings](const std::string& name, const std::string& text, const std::string& usual) {
        settings.erase(name);
        if (text != usual) {
            settings[name] = text;
        }
    };
    const auto set_lens = [&set](const std::string& lens, double turn, const double(&gain)[3], const int(&correct)[3]) {
        set("turn" + lens, number_text(turn), "0");
        set("gain" + lens, gains_text({gain[0], gain[1], gain[2]}), gains_text(kNoGains));
        set("correct" + lens, correction_text({correct[0], correct[1], correct[2]}), correction_text(kNoCorrection));
    };
    set_lens("1", options.turn1, options.gain1, options.correct1);
    set_lens("2", options.turn2, options.gain2, options.correct2);
    return settings;
}

AdjustmentsStore::AdjustmentsStore(const std::string& folder, bool read_only)
    : folder_(folder + "/.nq360"), read_only_(read_only) {}

std::string AdjustmentsStore::path_of(const std::string& shot) const {
    return folder_ + "/" + shot + ".json";
}

// What somebody else has put there is as if nothing were.
Settings AdjustmentsStore::load(const std::string& shot) const {
    std::error_code unknown;
    const std::string path = path_of(shot);
    if (!fs::is_regular_file(fs::symlink_status(path, unknown)) || fs::is_symlink(folder_, unknown) ||
        fs::file_size(path, unknown) > kMostFile) {
        return {};
    }
    std::ifstream file(path, std::ios::binary);
    const Json json = Json::parse(file, nullptr, false);
    if (!json.is_object()) {
        return {};
    }
    Settings settings;
    for (const auto& [name, value] : json.items()) {
        if (is_look(name) && value.is_string()) {
            settings[name] = value.get<std::string>();
        }
    }
    try {
        ExportJob job;
        apply_look(settings, &job);
    } catch (const std::invalid_argument&) {
        return {};
    }
    return settings;
}

void AdjustmentsStore::save(const std::string& shot, const Settings& settings) const {
    static std::mutex mutex;  // two would write the same file beside
    const std::lock_guard<std::mutex> lock(mutex);
    if (read_only_) {
        throw CommandError("nothing is kept: the folder is only read here");
    }
    std::error_code error;
    if (!settings.empty()) {
        fs::create_directory(folder_, error);
    }
    const std::string path = path_of(shot);
    if (!fs::is_directory(fs::symlink_status(folder_, error))) {
        if (settings.empty()) {
            return;
        }
        throw CommandError(printable(folder_) + ": cannot be made, so adjustments are not kept");
    }
    // A link is not followed: it could lead to any file of the user's.
    if (settings.empty() || fs::is_symlink(path, error)) {
        fs::remove(path, error);
        if (error) {
            throw CommandError(printable(path) + ": cannot be removed (" + error.message() + ")");
        }
    }
    if (settings.empty()) {
        return;
    }
    Json json = Json::object();
    for (const auto& [name, text] : settings) {
        json[name] = text;
    }
    write_whole(path, json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n");
}
