#include "batch/making.h"

#include <filesystem>

#include "batch/path_json.h"
#include "jobs/errors.h"
#include "terminal/console.h"

namespace {

template <typename T>
Json or_null(const std::optional<T>& value) {
    return value ? Json(*value) : Json();
}

template <typename T>
std::optional<T> optional_of(const Json& json) {
    return json.is_null() ? std::nullopt : std::optional<T>(json.get<T>());
}

Json size_json(const std::optional<Size>& size) {
    return size ? Json{size->width, size->height} : Json();
}

std::optional<Size> size_of(const Json& json) {
    return json.is_null() ? std::nullopt : std::optional<Size>({json.at(0).get<int>(), json.at(1).get<int>()});
}

// The picture may change while its name stays.
Json band_json(const std::optional<std::string>& band) {
    if (!band) {
        return {};
    }
    const auto state = state_of_file(*band);
    if (!state) {
        throw CommandError(printable(*band) + ": there is no such file");
    }
    Json json = {{"path", path_json(std::filesystem::absolute(*band).lexically_normal().string())}};
    json.update(file_state_json(*state));
    return json;
}

Json pair_json(const PairArguments& pair, int lens) {
    return {{"turn", pair.turns[lens]}, {"start", or_null(pair.starts[lens])}, {"end", or_null(pair.ends[lens])}};
}

}  // namespace

Json making_json(const Making& making) {
    const ExportArguments& arguments = making.arguments;
    Json lenses = Json::array();
    for (int lens = 0; lens < 2; ++lens) {
        lenses.push_back(pair_json(arguments.pair, lens));
        lenses.back()["correct"] = arguments.corrections[lens];
        lenses.back()["gain"] = arguments.gains[lens];
    }
    return {{"size", size_json(arguments.size)},
            {"tilt", arguments.tilt},
            {"yaw", arguments.yaw},
            {"pitch", arguments.pitch},
            {"roll", arguments.roll},
            {"lenses", std::move(lenses)},
            {"feather", or_null(arguments.feather)},
            {"band", band_json(arguments.band)},
            {"quality", or_null(arguments.quality)},
            {"bit_rate", arguments.bit_rate},
            {"sound", arguments.sound},
            {"sound_asked_for", making.sound_asked_for},
            {"aac", arguments.aac},
            {"web", arguments.web},
            {"date", arguments.date ? path_json(*arguments.date) : Json()},
            {"partial", arguments.partial},
            {"exact", arguments.exact},
            {"match", making.match}};
}

Making making_of(const Json& json) {
    Making making;
    ExportArguments& arguments = making.arguments;
    arguments.size = size_of(json.at("size"));
    arguments.tilt = json.at("tilt").get<double>();
    arguments.yaw = json.at("yaw").get<double>();
    arguments.pitch = json.at("pitch").get<double>();
    arguments.roll = json.at("roll").get<double>();
    for (size_t i = 0; i < 2; ++i) {
        const Json& lens = json.at("lenses").at(i);
        arguments.pair.turns[i] = lens.at("turn").get<double>();
        arguments.pair.starts[i] = optional_of<double>(lens.at("start"));
        arguments.pair.ends[i] = optional_of<double>(lens.at("end"));
        arguments.corrections[i] = lens.at("correct").get<Correction>();
        arguments.gains[i] = lens.at("gain").get<Gains>();
    }
    arguments.feather = optional_of<double>(json.at("feather"));
    if (!json.at("band").is_null()) {
        arguments.band = path_of(json.at("band").at("path"));
    }
    arguments.quality = optional_of<int>(json.at("quality"));
    arguments.bit_rate = json.at("bit_rate").get<long long>();
    arguments.sound = json.at("sound").get<int>();
    making.sound_asked_for = json.at("sound_asked_for").get<bool>();
    arguments.aac = json.at("aac").get<bool>();
    arguments.web = json.at("web").get<bool>();
    if (!json.at("date").is_null()) {
        arguments.date = path_of(json.at("date"));
    }
    arguments.partial = json.at("partial").get<bool>();
    arguments.exact = json.at("exact").get<bool>();
    making.match = json.at("match").get<bool>();
    return making;
}
