// What became of a batch's shots, kept beside their panoramas: one line of JSON a shot and event, in
// DIR/.nq360/journal.jsonl. Every process that writes at the same time as others has a file of its own,
// journal.NAME.jsonl, as lines that several machines append to one file of a shared folder may be lost.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "batch/file_state.h"
#include "jobs/replies.h"
#include "terminal/descriptor.h"

// The hidden folder of a batch's own files.
constexpr const char* kNotesFolder = ".nq360";

class Journal {
  public:
    // DIR/.nq360/journal.jsonl or, with a name, DIR/.nq360/journal.NAME.jsonl. Throws CommandError when it cannot be
    // opened.
    explicit Journal(const std::string& folder, const std::string& name = "");

    // Appends the line, with the time in front, and waits until it is on the disk. Throws CommandError when that fails.
    void append(const Json& event);

  private:
    std::string path_;
    Descriptor file_;
    bool ends_in_line_ = true;
};

// Now, as the journals have it: "2026-01-02T03:04:05.678Z". Such texts sort as their times do.
std::string time_text();

// The lines of one shot. Before a panorama takes its place a line tells that it is whole, afterwards one that it is
// done: so what stands there is known for ours whenever the process ends.
Json begun_event(const std::string& output);
Json whole_event(const std::string& output, const Json& key, const FileState& file);
Json done_event(const std::string& output, const Json& key, const FileState& file);
Json failed_event(const std::string& output, const std::string& why);
Json cancelled_event(const std::string& output);

// What is known of an output.
struct ShotRecord {
    struct Made {
        Json key;
        FileState file;
    };
    std::string event;  // the newest one: "begun", "whole", "done", "failed" or "cancelled"
    std::string time;   // of it, UTC
    std::string why;    // of "failed"
    std::optional<Made> done;
    std::optional<Made> whole;  // since then
};

// By output, out of all journals in DIR. Lines that are none, as a loss of power leaves them, are passed over.
using Records = std::map<std::string, ShotRecord>;
Records read_journals(const std::string& folder);

// Null where nothing is known of the output.
const ShotRecord* record_of(const Records& records, const std::string& output);

// How what stands at an output's place was made.
enum class OutputState {
    kMissing,
    kDone,      // from these inputs with these options
    kPlaced,    // so too, but the line that says so is missing
    kOutdated,  // by a batch, but otherwise
    kForeign    // not by a batch, or changed since
};
OutputState output_state(const ShotRecord* record, const Json& key, const std::string& path);
