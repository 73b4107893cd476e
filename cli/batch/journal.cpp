#include "batch/journal.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "batch/path_json.h"
#include "jobs/errors.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

bool ends_in_line(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file || file.tellg() == std::streampos(0)) {
        return true;
    }
    file.seekg(-1, std::ios::end);
    return file.get() == '\n';
}

Json event_of(const char* event, const std::string& output) {
    return {{"event", event}, {"output", path_json(output)}};
}

Json made_event(const char* event, const std::string& output, const Json& key, const FileState& file) {
    Json json = event_of(event, output);
    json["file"] = file_state_json(file);
    json["key"] = key;
    return json;
}

struct Line {
    std::string time;
    Json json;
};

// Throws where something is missing; nothing is noted then.
void note(const Line& line, Records* records) {
    const std::string output = path_of(line.json.at("output"));
    const auto before = records->find(output);
    ShotRecord record = before == records->end() ? ShotRecord() : before->second;
    record.event = line.json.at("event").get<std::string>();
    record.time = line.time;
    record.why = text_of(line.json, "why");
    if (record.event == "whole" || record.event == "done") {
        const ShotRecord::Made made = {line.json.at("key"), file_state_of(line.json.at("file"))};
        record.whole = record.event == "whole" ? std::optional(made) : std::nullopt;
        record.done = record.event == "done" ? std::optional(made) : record.done;
    }
    (*records)[output] = std::move(record);
}

// The lines of one file are in order, also where the clock was set back meanwhile.
void read_lines(const fs::path& path, std::vector<Line>* lines) {
    std::ifstream file(path, std::ios::binary);
    std::string newest;
    for (std::string text; std::getline(file, text);) {
        Json json = Json::parse(text, nullptr, false);
        if (json.is_object()) {
            newest = std::max(newest, text_of(json, "time"));
            lines->push_back({newest, std::move(json)});
        }
    }
}

bool is_journal(const fs::path& path) {
    const std::string name = path.filename().string();
    return name.rfind("journal.", 0) == 0 && path.extension() == ".jsonl";
}

}  // namespace

Journal::Journal(const std::string& folder, const std::string& name)
    : path_((fs::path(folder) / kNotesFolder / ("journal." + (name.empty() ? "" : name + ".") + "jsonl")).string()),
      file_(open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666)),
      ends_in_line_(ends_in_line(path_)) {
    if (!file_) {
        throw CommandError(printable(path_) + ": cannot be written (" + std::strerror(errno) + ")");
    }
}

void Journal::append(const Json& event) {
    Json line = {{"time", time_text()}};
    line.update(event);
    const std::string text = (ends_in_line_ ? "" : "\n") + json_line(line);
    const ssize_t written = write(file_.get(), text.data(), text.size());
    ends_in_line_ = written == static_cast<ssize_t>(text.size());
    if (!ends_in_line_ || fdatasync(file_.get()) != 0) {
        throw CommandError(printable(path_) + ": cannot be written (" + std::strerror(written < 0 ? errno : ENOSPC) +
                           "); what is made further on would not be known");
    }
}

std::string time_text() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    const std::time_t seconds = milliseconds / 1000;
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    char date[32];
    char text[48];
    std::strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text, sizeof(text), "%s.%03dZ", date, static_cast<int>(milliseconds % 1000));
    return text;
}

Json begun_event(const std::string& output) {
    return event_of("begun", output);
}

Json whole_event(const std::string& output, const Json& key, const FileState& file) {
    return made_event("whole", output, key, file);
}

Json done_event(const std::string& output, const Json& key, const FileState& file) {
    return made_event("done", output, key, file);
}

Json failed_event(const std::string& output, const std::string& why) {
    Json json = event_of("failed", output);
    json["why"] = why;
    return json;
}

Json cancelled_event(const std::string& output) {
    return event_of("cancelled", output);
}

Records read_journals(const std::string& folder) {
    std::vector<Line> lines;
    std::error_code error;
    for (fs::directory_iterator entry(fs::path(folder) / kNotesFolder, error);
         !error && entry != fs::directory_iterator(); entry.increment(error)) {
        if (is_journal(entry->path())) {
            read_lines(entry->path(), &lines);
        }
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const Line& one, const Line& other) { return one.time < other.time; });
    Records records;
    for (const Line& line : lines) {
        try {
            note(line, &records);
        } catch (const Json::exception&) {
            continue;  // a line of some other kind
        }
    }
    return records;
}

const ShotRecord* record_of(const Records& records, const std::string& output) {
    const auto found = records.find(output);
    return found == records.end() ? nullptr : &found->second;
}

OutputState output_state(const ShotRecord* record, const Json& key, const std::string& path) {
    const auto there = state_of_file(path);
    if (!there) {
        return OutputState::kMissing;
    }
    if (!record || !there->is_regular) {
        return OutputState::kForeign;
    }
    if (record->whole && record->whole->file == *there) {
        return record->whole->key == key ? OutputState::kPlaced : OutputState::kOutdated;
    }
    if (record->done && record->done->file.bytes == there->bytes) {
        return record->done->key == key ? OutputState::kDone : OutputState::kOutdated;
    }
    return OutputState::kForeign;
}
