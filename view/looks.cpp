#include "looks.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/library.h"
#include "jobs/replies.h"
#include "jobs/whole_file.h"

namespace fs = std::filesystem;

namespace {

constexpr int kThumbnailWidth = 320;

std::string cache_folder() {
    const char* cache = std::getenv("XDG_CACHE_HOME");
    const char* home = std::getenv("HOME");
    if ((!cache || !*cache) && (!home || !*home)) {
        return "";
    }
    const fs::path folder = fs::path(cache && *cache ? cache : fs::path(home) / ".cache") / "nq360" / "view";
    std::error_code error;
    fs::create_directories(folder, error);
    return fs::is_directory(folder, error) ? folder.string() : "";
}

// FNV-1a. Two files of one number are told apart by the note beside the thumbnail.
uint64_t number_of(const std::string& text) {
    uint64_t number = 0xcbf29ce484222325;
    for (const unsigned char byte : text) {
        number = (number ^ byte) * 0x100000001b3;
    }
    return number;
}

Json note_of(const FileVersion& file) {
    return {{"path", file.path}, {"size", file.size}, {"time", file.time}};
}

Look read_look(const Json& reply, NQ360_STATE state, const FileVersion& file) {
    Look look;
    if (state != NQ360_FINISHED) {
        look.failure = analysis_failure(reply, file.path, "");
        return look;
    }
    look.description = read_description(reply);
    if (look.description.width <= 0 || look.description.height <= 0) {
        look.failure = no_picture(file.path);
    }
    return look;
}

void write_note(const std::string& path, const Json& note) {
    try {
        write_whole(path, json_line(note));
    } catch (const CommandError&) {
        // What is not kept is found out again.
    }
}

}  // namespace

Look glance_at(const FileVersion& file) {
    const Outcome outcome = analyze_file(file.path);
    return read_look(read_reply(outcome.reply, Operation::kAnalysis), outcome.state, file);
}

Looks::Looks() : folder_(cache_folder()), free_(static_cast<int>(std::max(1U, std::thread::hardware_concurrency()))) {}

std::string Looks::stem_of(const FileVersion& file) const {
    char name[32];
    std::snprintf(
        name, sizeof(name), "%016llx",
        static_cast<unsigned long long>(number_of(note_of(file).dump(-1, ' ', false, Json::error_handler_t::replace))));
    return folder_ + "/" + name;
}

std::optional<Look> Looks::kept(const FileVersion& file) const {
    std::ifstream note_file(folder_.empty() ? "" : stem_of(file) + ".json");
    const Json note = note_file ? Json::parse(note_file, nullptr, false) : Json();
    if (!note.is_object() || note.value("file", Json()) != Json::parse(json_line(note_of(file)))) {
        return {};
    }
    Look look;
    try {
        look.description = read_description(note.value("reply", Json::object()));
    } catch (const Json::exception&) {
        return {};  // somebody else has written there
    }
    std::error_code unknown;
    if (fs::exists(stem_of(file) + ".jpg", unknown)) {
        look.thumbnail = stem_of(file) + ".jpg";
    }
    return look;
}

Outcome Looks::analyze_in_turn(const std::string& path, const std::optional<std::string>& thumbnail) {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        freed_.wait(lock, [this] { return free_ > 0; });
        --free_;
    }
    const auto end_turn = [](Looks* looks) {
        const std::lock_guard<std::mutex> lock(looks->mutex_);
        ++looks->free_;
        looks->freed_.notify_one();
    };
    const std::unique_ptr<Looks, decltype(end_turn)> turn(this, end_turn);  // ends whatever happens
    return analyze_file(path, thumbnail, kThumbnailWidth);
}

Look Looks::look_at(const FileVersion& file) {
    if (auto look = kept(file)) {
        return *look;
    }
    std::optional<std::string> beside;
    if (!folder_.empty()) {
        beside = path_beside(folder_, ".jpg");
    }
    const Outcome outcome = analyze_in_turn(file.path, beside);
    const Json reply = read_reply(outcome.reply, Operation::kAnalysis);
    Look look = read_look(reply, outcome.state, file);
    // Whole, or not there: it may be sent at the same moment.
    std::error_code failed;
    const std::string thumbnail = stem_of(file) + ".jpg";
    if (beside && fs::exists(*beside, failed)) {
        fs::rename(*beside, thumbnail, failed);
        look.thumbnail = failed ? "" : thumbnail;
    }
    // A failure may be the moment's, of a card that was pulled out.
    if (!folder_.empty() && look.failure.empty()) {
        write_note(stem_of(file) + ".json", {{"file", note_of(file)}, {"reply", reply}});
    }
    return look;
}
