// How a shot's panorama is to look: texts by the names of the command's options without their dashes, as they are
// typed there ("yaw": "10", "gain2": "0.9,1,1"). What is not there is as usual.
#pragma once

#include <map>
#include <string>

#include "jobs/library.h"
#include "jobs/replies.h"

using Settings = std::map<std::string, std::string>;

// Sets what the settings say, beside the command's usual. Throws std::invalid_argument, beginning with the name, for a
// value that makes no sense; settings of other names are not looked at.
void apply_look(const Settings& settings, ExportJob* job);

// The same for size, quality, bit-rate, sound, aac, web and partial.
void apply_coding(const Settings& settings, ExportJob* job);

// The start and end of a movie's range in seconds; of both lenses.
void apply_range(const Settings& settings, ExportJob* job);

// The settings that are the members of an object: texts, numbers and flags. Throws std::invalid_argument for others.
Settings settings_in(const Json& object);

// Those that say how a panorama is written, and its range, by name.
bool is_choice(const std::string& name);

// Those that say how a panorama looks, by name; "band", a file's name, among them.
bool is_look(const std::string& name);

// The settings with what a match has set in the job in place of their turns, gains and corrections.
Settings matched_look(const Settings& before, const ExportJob& job);

// The settings of the shots of a folder, each in a file of its own in FOLDER/.nq360.
class AdjustmentsStore {
  public:
    explicit AdjustmentsStore(const std::string& folder, bool read_only);

    Settings load(const std::string& shot) const;

    // Written beside and renamed, so that it is whole whenever the process ends. Without settings the file is removed.
    // Throws CommandError when one of these cannot be.
    void save(const std::string& shot, const Settings& settings) const;

  private:
    std::string path_of(const std::string& shot) const;

    std::string folder_;
    bool read_only_;
};
