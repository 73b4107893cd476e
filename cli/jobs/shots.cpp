#include "jobs/shots.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <stdexcept>
#include <tuple>

namespace {

constexpr int64_t kFramesApart = 2;  // one lens may have begun or ended a little later

// Marks of lens 1 and lens 2. A digit other than 1 and 2 in the same place shows that numbers count shots there.
constexpr std::array<std::array<const char*, 2>, 7> kMarks = {
    {{"1", "2"}, {"a", "b"}, {"l", "r"}, {"left", "right"}, {"front", "back"}, {"front", "rear"}, {"f", "r"}}};

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A run of digits or of letters, which a name consists of between its other characters.
struct Word {
    size_t begin;
    size_t length;
};

std::vector<Word> words_of(const std::string& name) {
    const auto kind = [&name](size_t at) {
        const auto c = static_cast<unsigned char>(name[at]);
        return std::isdigit(c) ? 1 : std::isalpha(c) || c >= 0x80 ? 2 : 0;
    };
    std::vector<Word> words;
    for (size_t at = 0; at < name.size();) {
        size_t end = at + 1;
        while (end < name.size() && kind(end) == kind(at)) {
            ++end;
        }
        if (kind(at) != 0) {
            words.push_back({at, end - at});
        }
        at = end;
    }
    return words;
}

// What a file may be: the half of which lens, in a shot that is known by all that both halves have in common.
struct Reading {
    std::string shot;
    int lens;  // 0, 1; -1: numbers count shots here
};

// The mark as it stands is part of what halves share but for its lens: "front" may go with "back" and with "rear".
void add_marks(const std::string& before, const std::string& mark, const std::string& after,
               std::vector<Reading>* readings) {
    const auto shot = [&before, &after](size_t marks) {
        std::string name = before;
        return name.append(1, '\0').append(std::to_string(marks)).append(1, '\0').append(after);
    };
    for (size_t i = 0; i < kMarks.size(); ++i) {
        for (int lens = 0; lens < 2; ++lens) {
            if (mark == kMarks[i][lens]) {
                readings->push_back({shot(i), lens});
            }
        }
    }
    if (mark.size() == 1 && std::isdigit(static_cast<unsigned char>(mark[0])) && mark != "1" && mark != "2") {
        readings->push_back({shot(0), -1});
    }
}

std::vector<Reading> readings_of(const std::string& stem, const std::optional<NamePattern>& pattern) {
    std::vector<Reading> readings;
    if (pattern) {
        if (const auto match = pattern->match(stem)) {
            readings.push_back({match->shot + '\0' + std::to_string(match->marks), match->lens});
        }
        return readings;
    }
    const std::string name = lower_case(stem);
    for (const Word& word : words_of(name)) {
        if (word.length == name.size()) {
            break;  // nothing would be left to name the shot
        }
        add_marks(name.substr(0, word.begin), name.substr(word.begin, word.length),
                  name.substr(word.begin + word.length), &readings);
    }
    return readings;
}

// What halves have in common beside their names.
std::string common_of(const ShotFile& file) {
    const Description& found = file.description;
    std::string common = lower_case(std::filesystem::path(file.path).parent_path().string() + '\0' +
                                    std::filesystem::path(file.path).extension().string());
    for (const std::string& part : {std::to_string(found.is_picture), std::to_string(found.width),
                                    std::to_string(found.height), found.datetime, found.source}) {
        common += '\0' + part;
    }
    return common;
}

bool is_half(const Description& found) {
    return found.width > 0 && found.width == found.height;
}

bool is_panorama(const Description& found) {
    return found.height > 0 && found.width == 2 * found.height;
}

bool frames_agree(const Description& one, const Description& other) {
    return one.is_picture || std::llabs(one.frames - other.frames) <= kFramesApart;
}

class Finder {
  public:
    Finder(const std::vector<ShotFile>& files, const std::optional<NamePattern>& pattern)
        : files_(files), pattern_(pattern), others_(files.size()), ambiguous_(files.size()) {}

    std::vector<Shot> find() {
        for (size_t i = 0; i < files_.size(); ++i) {
            if (is_half(files_[i].description)) {
                note(i);
            }
        }
        for (const auto& [shot, candidates] : candidates_) {
            judge(candidates);
        }
        std::vector<Shot> shots;
        for (size_t i = 0; i < files_.size(); ++i) {
            add(i, &shots);
        }
        sort(&shots);
        return shots;
    }

  private:
    struct Candidates {
        std::vector<size_t> lens[2];
        std::vector<size_t> neither;  // numbered shots
    };

    void note(size_t file) {
        const std::string common = common_of(files_[file]);
        alike_[common].push_back(file);
        if (files_[file].description.datetime.empty()) {
            return;
        }
        const std::string stem = std::filesystem::path(files_[file].path).stem().string();
        for (const Reading& reading : readings_of(stem, pattern_)) {
            Candidates& candidates = candidates_[common + '\0' + reading.shot];
            (reading.lens < 0 ? candidates.neither : candidates.lens[reading.lens]).push_back(file);
        }
    }

    void judge(const Candidates& candidates) {
        const auto& [first, second] = candidates.lens;
        if (first.empty() || second.empty() || !candidates.neither.empty()) {
            return;
        }
        if (first.size() > 1 || second.size() > 1) {
            for (const auto* some : {&first, &second}) {
                for (const size_t file : *some) {
                    ambiguous_[file] = true;
                }
            }
            return;
        }
        if (frames_agree(files_[first[0]].description, files_[second[0]].description)) {
            others_[first[0]].insert({second[0], 0});
            others_[second[0]].insert({first[0], 1});
        }
    }

    // The other half, where both name only each other.
    std::optional<size_t> other_half(size_t file) const {
        if (ambiguous_[file] || others_[file].size() != 1) {
            return {};
        }
        const size_t other = others_[file].begin()->first;
        return ambiguous_[other] || others_[other].size() != 1 ? std::nullopt : std::optional(other);
    }

    void add(size_t file, std::vector<Shot>* shots) const {
        const Description& found = files_[file].description;
        if (!is_half(found)) {
            shots->push_back({is_panorama(found) ? ShotKind::kPanorama : ShotKind::kOther, {file}, ""});
        } else if (const auto other = other_half(file)) {
            if (others_[file].begin()->second == 0) {
                shots->push_back({ShotKind::kPair, {file, *other}, ""});
            }
        } else {
            shots->push_back({ShotKind::kLone, {file}, why_alone(file)});
        }
    }

    std::string why_alone(size_t file) const {
        const bool has_candidates = ambiguous_[file] || !others_[file].empty();
        if (has_candidates) {
            return "more than one file could be its second half";
        }
        if (files_[file].description.datetime.empty()) {
            return "it does not tell when it was taken, so no second half can be found";
        }
        const std::vector<size_t>& alike = alike_.at(common_of(files_[file]));
        const bool others_are_alone = std::any_of(
            alike.begin(), alike.end(), [this, file](size_t other) { return other != file && !other_half(other); });
        return others_are_alone ? "the names of others of the same time do not tell which is its second half"
                                : "no second half is there";
    }

    void sort(std::vector<Shot>* shots) const {
        const auto key = [this](const Shot& shot) {
            const ShotFile& first = files_[shot.files[0]];
            return std::tie(first.description.datetime, first.path);
        };
        std::sort(shots->begin(), shots->end(),
                  [&key](const Shot& one, const Shot& other) { return key(one) < key(other); });
    }

    const std::vector<ShotFile>& files_;
    const std::optional<NamePattern>& pattern_;
    std::map<std::string, Candidates> candidates_;      // by what is common and by the shot's name
    std::map<std::string, std::vector<size_t>> alike_;  // files with all but the name in common
    std::vector<std::map<size_t, int>> others_;  // of each file: the other half and which lens the file itself is
    std::vector<bool> ambiguous_;
};

}  // namespace

NamePattern::NamePattern(const std::string& text) {
    constexpr std::string_view kShot = "{shot}";
    constexpr std::string_view kLens = "{lens}";
    const size_t shot = text.find(kShot);
    const size_t lens = text.find(kLens);
    if (shot == std::string::npos || lens == std::string::npos || shot != text.rfind(kShot) ||
        lens != text.rfind(kLens)) {
        throw std::invalid_argument("expected a name with {shot} and {lens} once each, such as {shot}_lens{lens}");
    }
    shot_comes_first_ = shot < lens;
    const size_t first = std::min(shot, lens);
    const size_t second = std::max(shot, lens);
    before_ = text.substr(0, first);
    between_ = text.substr(first + kShot.size(), second - first - kShot.size());
    after_ = text.substr(second + kLens.size());
}

std::optional<NamePattern::Match> NamePattern::match(const std::string& stem) const {
    const size_t fixed = before_.size() + between_.size() + after_.size();
    if (stem.size() <= fixed + 1 || stem.compare(0, before_.size(), before_) != 0 ||
        stem.compare(stem.size() - after_.size(), after_.size(), after_) != 0) {
        return {};
    }
    const std::string fields = stem.substr(before_.size(), stem.size() - before_.size() - after_.size());
    std::optional<Match> found;
    size_t longest = 0;
    for (size_t i = 0; i < kMarks.size(); ++i) {
        for (int lens = 0; lens < 2; ++lens) {
            const std::string mark = kMarks[i][lens];
            const auto shot = mark.size() > longest ? shot_beside(fields, mark) : std::nullopt;
            if (shot) {
                found = Match{*shot, static_cast<int>(i), lens};
                longest = mark.size();
            }
        }
    }
    return found;
}

std::optional<std::string> NamePattern::shot_beside(const std::string& fields, const std::string& mark) const {
    const size_t length = mark.size() + between_.size();
    if (fields.size() <= length) {
        return {};
    }
    const size_t shot_at = shot_comes_first_ ? 0 : length;
    const size_t between_at = shot_comes_first_ ? fields.size() - length : mark.size();
    const size_t mark_at = shot_comes_first_ ? fields.size() - mark.size() : 0;
    if (fields.compare(between_at, between_.size(), between_) != 0 ||
        lower_case(fields.substr(mark_at, mark.size())) != mark) {
        return {};
    }
    return fields.substr(shot_at, fields.size() - length);
}

std::vector<Shot> find_shots(const std::vector<ShotFile>& files, const std::optional<NamePattern>& pattern) {
    return Finder(files, pattern).find();
}
