// Which files are the two halves of one shot. It is told by what the files say of themselves and by their names; what
// could be read in two ways is left apart, with the reason.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "jobs/description.h"

// A picture or movie out of a folder.
struct ShotFile {
    std::string path;
    Description description;
};

enum class ShotKind {
    kPair,      // two halves
    kPanorama,  // made already
    kLone,      // a half without its other one
    kOther      // no picture of a lens: another shape than square
};

struct Shot {
    ShotKind kind = ShotKind::kOther;
    std::vector<size_t> files;  // indices; of a pair lens 1, lens 2
    std::string why;            // of kLone: why it has no second half, a sentence's end: "no second half is there"
};

// How the names of two halves differ where a person's names are other than usual: "{shot}" and "{lens}" once each, the
// rest as it is, without the extension. What stands for {lens} is one of the usual marks.
class NamePattern {
  public:
    // Throws std::invalid_argument with a text that says what is expected.
    explicit NamePattern(const std::string& text);

    struct Match {
        std::string shot;
        int marks;  // which pair of marks
        int lens;   // 0 or 1
    };
    std::optional<Match> match(const std::string& stem) const;

  private:
    // The shot's name, where the fields and what stands between them end or begin with this mark.
    std::optional<std::string> shot_beside(const std::string& fields, const std::string& mark) const;

    std::string before_;  // the first of the two fields
    std::string between_;
    std::string after_;
    bool shot_comes_first_;
};

// Every file is in exactly one shot. They come in order of capture, then of their names.
//
// Halves have one kind and size, one capture time and camera, movies numbers of frames that differ by two at most; and
// their names are the same but for one mark: 1 and 2 (not part of a longer number), A and B, L and R, left and right,
// front and back or rear, in upper or lower case. With a pattern the names are read as it says.
std::vector<Shot> find_shots(const std::vector<ShotFile>& files, const std::optional<NamePattern>& pattern = {});
