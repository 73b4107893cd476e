#include "batch/plan.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <set>

#include "batch/path_json.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/in_order.h"
#include "jobs/input_files.h"
#include "jobs/library.h"
#include "jobs/shot_export.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace fs = std::filesystem;

namespace {

constexpr double kStillWork = 3.5;             // of a movie's frame of the same size: tables, a JPEG of good quality
constexpr double kSoundBytes = 48000 * 2 * 2;  // a second of 16-bit stereo
constexpr int kMostAnalyses = 8;               // at a time: more would wait for the disk

struct FoundFile {
    std::string path;
    fs::path below;  // the folder it lies in, below the one that was named
};

bool lies_in(const fs::path& path, const fs::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

fs::path real_folder(const std::string& folder) {
    std::error_code error;
    fs::path real = fs::canonical(folder, error);
    if (error || !fs::is_directory(real, error)) {
        throw CommandError(printable(folder) + ": there is no such folder");
    }
    return real;
}

// Each file once, also where folders overlap, in the order of the folders and then of the names.
std::vector<FoundFile> files_of(const PlanRequest& request) {
    const fs::path to = fs::weakly_canonical(fs::absolute(request.to));
    std::vector<FoundFile> files;
    std::set<std::string> seen;
    for (const std::string& folder : request.folders) {
        const fs::path real = real_folder(folder);
        if (lies_in(real, to)) {
            throw UsageError(printable(folder) + ": lies in the folder of --to; choose another one for the panoramas");
        }
        for (const std::string& path : input_files({real.string()}, request.recursive)) {
            if (!lies_in(path, to) && seen.insert(path).second) {
                files.push_back({path, fs::path(path).lexically_relative(real).parent_path()});
            }
        }
    }
    return files;
}

int64_t size_of(const std::string& path) {
    std::error_code failed;
    const auto size = fs::file_size(path, failed);
    return failed ? 0 : static_cast<int64_t>(size);
}

Size panorama_size(const Description& lens, const std::optional<Size>& wanted) {
    if (wanted) {
        return *wanted;
    }
    const int width = lens.width == 1440 ? 2880 : lens.width == 3888 && lens.is_picture ? 7680 : 3840;
    return {width, width / 2};
}

bool is_of_camera(const Description& lens) {
    return lens.width == 1440 || lens.width == 1936 || lens.width == 3888;
}

// Names of panoramas, each handed out once, also where a file system does not tell capitals.
class OutputNames {
  public:
    std::string take(const fs::path& folder, const std::string& stem, const std::string& ending) {
        const fs::path usual(stem + ending);
        std::string name = (folder / usual).string();
        for (int number = 2; !given_.insert(in_lower_case(name)).second; ++number) {
            name =
                (folder / (usual.stem().string() + "-" + std::to_string(number) + usual.extension().string())).string();
        }
        return name;
    }

  private:
    static std::string in_lower_case(std::string text) {
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return text;
    }

    std::set<std::string> given_;
};

class Planner {
  public:
    Planner(const PlanRequest& request, const ExportArguments& arguments)
        : request_(request), arguments_(arguments), found_(files_of(request)) {}

    std::optional<Plan> plan() {
        if (!describe_files()) {
            return {};
        }
        for (const Shot& shot : find_shots(files_, request_.pattern)) {
            add(shot);
        }
        name_outputs();
        return std::move(plan_);
    }

  private:
    // Whether no signal came.
    bool describe_files() {
        const Stoppable stoppable("the files begun are described");
        Progress progress("files", false);
        progress.begin(static_cast<int64_t>(found_.size()));
        using Analysis = std::optional<Outcome>;
        InOrder<Analysis> analyses(found_.size(), std::min(core_count(), kMostAnalyses), [this](size_t i) {
            return interrupted() ? Analysis() : analyze_file(found_[i].path);
        });
        for (size_t i = 0; i < found_.size(); ++i) {
            const Analysis analysis = analyses.take(i);
            if (!analysis) {
                return false;
            }
            note(i, *analysis);
            progress.advance(static_cast<int64_t>(i) + 1);
        }
        return true;
    }

    void note(size_t index, const Outcome& outcome) {
        const std::string& path = found_[index].path;
        const Json reply = read_reply(outcome.reply, Operation::kAnalysis);
        if (outcome.state != NQ360_FINISHED) {
            plan_.left_out.push_back({path, analysis_failure(reply, path, ""), true});
            return;
        }
        const Description description = read_description(reply);
        if (description.width <= 0 || description.height <= 0) {
            plan_.left_out.push_back({path, no_picture(path), true});
            return;
        }
        files_.push_back({path, description});
        origin_.push_back(index);
    }

    void add(const Shot& shot) {
        const ShotFile& first = files_[shot.files[0]];
        if (shot.kind == ShotKind::kPair && is_of_camera(first.description)) {
            plan_.shots.push_back(planned(first, files_[shot.files[1]]));
            lens1_.push_back(origin_[shot.files[0]]);
        } else if (shot.kind == ShotKind::kLone) {
            leave_out(first, shot.why);
        } else if (shot.kind != ShotKind::kPanorama) {
            for (const size_t file : shot.files) {
                leave_out(files_[file],
                          "no picture of a lens of this camera, which are squares of 3888, 1936 or 1440 pixels (" +
                              std::to_string(first.description.width) + "x" + std::to_string(first.description.height) +
                              ")");
            }
        }
    }

    void leave_out(const ShotFile& file, const std::string& why) {
        plan_.left_out.push_back({file.path, printable(file.path) + ": " + why});
    }

    PlannedShot planned(const ShotFile& first, const ShotFile& second) const {
        PlannedShot shot;
        shot.lens[0] = first.path;
        shot.lens[1] = second.path;
        shot.is_picture = first.description.is_picture;
        shot.lens_width = first.description.width;
        const Size size = panorama_size(first.description, arguments_.size);
        shot.width = size.width;
        shot.height = size.height;
        shot.input_bytes = static_cast<uint64_t>(size_of(first.path) + size_of(second.path));
        if (shot.is_picture) {
            shot.bytes = shot.input_bytes;
        } else {
            set_range(first.description, second.description, &shot);
            shot.bytes = movie_bytes(first, shot);
        }
        return shot;
    }

    // Of both movies the panorama has what the shorter one gives.
    void set_range(const Description& first, const Description& second, PlannedShot* shot) const {
        shot->frames = std::min(first.frames, second.frames);
        if (!first.has_length() || !second.has_length()) {
            return;
        }
        const PairArguments& pair = arguments_.pair;
        const auto left = [&pair](const Description& movie, int lens) {
            return std::min(movie.duration, pair.end(lens).value_or(movie.duration)) - pair.start(lens);
        };
        shot->seconds = std::max(0.0, std::min(left(first, 0), left(second, 1)));
        shot->frames = std::min<int64_t>(shot->frames, std::llround(shot->seconds / first.frame_seconds()));
    }

    // The bit rate is that of the lens, scaled by the area, unless it was chosen.
    uint64_t movie_bytes(const ShotFile& lens, const PlannedShot& shot) const {
        double bytes = static_cast<double>(arguments_.bit_rate) / 8 * shot.seconds;
        if (arguments_.bit_rate == 0) {
            const double share =
                lens.description.has_length() ? std::min(1.0, shot.seconds / lens.description.duration) : 1;
            const double area = static_cast<double>(shot.width) * shot.height /
                                (static_cast<double>(lens.description.width) * lens.description.height);
            bytes = static_cast<double>(size_of(lens.path)) * share * area;
        }
        return static_cast<uint64_t>(bytes + (arguments_.sound < 0 ? 0 : kSoundBytes * shot.seconds));
    }

    // In the order of the files, so that a shot keeps its number whatever their dates are.
    void name_outputs() {
        std::vector<size_t> order(plan_.shots.size());
        std::iota(order.begin(), order.end(), 0);
        std::sort(order.begin(), order.end(), [this](size_t one, size_t other) { return lens1_[one] < lens1_[other]; });
        OutputNames names;
        for (const size_t i : order) {
            PlannedShot& shot = plan_.shots[i];
            shot.output = names.take(found_[lens1_[i]].below, fs::path(shot.lens[0]).stem().string(),
                                     usual_ending(shot.is_picture, shot.lens[0]));
        }
    }

    const PlanRequest& request_;
    const ExportArguments& arguments_;
    const std::vector<FoundFile> found_;
    std::vector<ShotFile> files_;  // those that could be described ...
    std::vector<size_t> origin_;   // ... and where they stand in found_
    std::vector<size_t> lens1_;    // the same of each shot's lens 1
    Plan plan_;
};

}  // namespace

double PlannedShot::work() const {
    const double pixels = static_cast<double>(width) * height;
    return pixels * (is_picture ? kStillWork : static_cast<double>(std::max<int64_t>(frames, 1)));
}

std::optional<Plan> make_plan(const PlanRequest& request, const ExportArguments& arguments) {
    return Planner(request, arguments).plan();
}

uint64_t space_needed(const std::vector<const PlannedShot*>& shots) {
    uint64_t bytes = 0;
    uint64_t asked_beyond = 0;
    for (const PlannedShot* shot : shots) {
        bytes += shot->bytes;
        asked_beyond = std::max(asked_beyond, shot->input_bytes - std::min(shot->input_bytes, shot->bytes));
    }
    return shots.empty() ? 0 : bytes + asked_beyond + kHeadroom;
}

Json shot_json(const PlannedShot& shot) {
    return {{"output", path_json(shot.output)},
            {"lens1", path_json(shot.lens[0])},
            {"lens2", path_json(shot.lens[1])},
            {"picture", shot.is_picture},
            {"width", shot.width},
            {"height", shot.height},
            {"lens_width", shot.lens_width},
            {"frames", shot.frames},
            {"seconds", shot.seconds},
            {"bytes", shot.bytes},
            {"input_bytes", shot.input_bytes}};
}

PlannedShot shot_of(const Json& json) {
    PlannedShot shot;
    shot.output = path_of(json.at("output"));
    shot.lens[0] = path_of(json.at("lens1"));
    shot.lens[1] = path_of(json.at("lens2"));
    shot.is_picture = json.at("picture").get<bool>();
    shot.width = json.at("width").get<int>();
    shot.height = json.at("height").get<int>();
    shot.lens_width = json.at("lens_width").get<int>();
    shot.frames = json.at("frames").get<int64_t>();
    shot.seconds = json.at("seconds").get<double>();
    shot.bytes = json.at("bytes").get<uint64_t>();
    shot.input_bytes = json.at("input_bytes").get<uint64_t>();
    return shot;
}
