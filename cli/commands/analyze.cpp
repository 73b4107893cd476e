// nq360 analyze
#include <algorithm>
#include <optional>
#include <vector>

#include "commands/command.h"
#include "jobs/arguments.h"
#include "jobs/description.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/in_order.h"
#include "jobs/input_files.h"
#include "jobs/library.h"
#include "jobs/option.h"
#include "jobs/replies.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace {

constexpr int kThumbnailWidth = 320;
constexpr int kMostJobs = 256;

std::string row(const std::string& type, const std::string& size, const std::string& length, const std::string& frames,
                const std::string& is_360, const std::string& damaged, const std::string& date,
                const std::string& source, const std::string& name) {
    return padded(type, 5) + padded(size, 9) + padded(length, 7) + padded(frames, 6) + padded(is_360, 3) +
           padded(damaged, 7) + padded(date, 19) + padded(source, 25) + name + "\n";
}

std::string header() {
    return row("TYPE", "SIZE", "LENGTH", "FRAMES", "360", "DAMAGED", "DATE", "SOURCE", "NAME");
}

std::string row(const Description& file, const std::string& path) {
    const auto or_dash = [](const std::string& text) { return text.empty() ? "-" : printable(text); };
    const bool has_frames = !file.is_picture && file.frames > 0;
    return row(file.is_picture ? "JPEG" : "MOVIE", std::to_string(file.width) + "x" + std::to_string(file.height),
               file.has_length() ? clock_text(file.duration) : "-", has_frames ? std::to_string(file.frames) : "-",
               file.is_360 ? "yes" : "no", or_dash(file.unread), or_dash(file.datetime), or_dash(file.source),
               printable(path));
}

class Analyze : public Command {
  public:
    explicit Analyze(CLI::App& app)
        : Command(
              app, "analyze",
              "Describes pictures and movies. In a folder, all that are in it. A file that cannot be read is named "
              "and the others go on. What of a file is damaged (its picture, movie, exif, xmp) stands in a column.") {
        parser()
            .add_option("FILE", arguments_, "picture (.jpg, .jpeg), movie (.mov, .mp4) or folder of these")
            ->option_text("FILE|DIR...")
            ->required();
        parser().add_flag("-r,--recursive", recursive_, "in folders, the folders in them too");
        parser().add_flag(
            "--json", json_,
            "print one JSON object a line and file, with the keys of the library's replies; that of a file "
            "that failed has the key \"errnum\" or a width of 0");
        CLI::Option* thumbnails = parser()
                                      .add_option("--thumbnails", thumbnail_folder_,
                                                  "write a thumbnail of each file, NAME.jpg, into this folder")
                                      ->option_text("DIR");
        parser()
            .add_option("--width", thumbnail_width_, "width of the thumbnails in pixels (320)")
            ->option_text("N")
            ->check(CLI::Range(1, 32766))
            ->needs(thumbnails);
        add_parsed(parser(), "--jobs", jobs_, parse_jobs, "N", "describe so many files at a time (one per core)");
        add_loudness();
    }

  private:
    int run() override {
        const std::vector<std::string> files = input_files(arguments_, recursive_);
        const std::vector<std::optional<std::string>> thumbnails = thumbnails_of(files);
        const Stoppable stoppable("the files begun are described");
        Progress progress("files", false);
        if (files.size() > 1) {
            progress.begin(static_cast<int64_t>(files.size()));
        }
        if (!json_ && !console().quiet()) {
            console().print(header());
        }
        // Nothing once a signal has come.
        using Analysis = std::optional<Outcome>;
        InOrder<Analysis> analyses(files.size(), jobs_.value_or(std::min(core_count(), kMostJobs)), [&](size_t i) {
            return interrupted() ? Analysis() : analyze_file(files[i], thumbnails[i], thumbnail_width_);
        });
        for (size_t i = 0; i < files.size(); ++i) {
            const Analysis analysis = analyses.take(i);
            if (!analysis) {
                console().complain("cancelled");
                return kCancelled;
            }
            tell(*analysis, files[i], thumbnails[i].value_or(""));
            if (files.size() > 1) {
                progress.advance(described_ + failed_);
            }
        }
        if (files.size() > 1 && failed_ + damaged_ > 0) {
            console().tell(std::to_string(described_) + " described, " +
                           (damaged_ > 0 ? std::to_string(damaged_) + " of them damaged, " : "") +
                           std::to_string(failed_) + " failed");
        }
        return failed_ > 0 ? kFailed : kDone;
    }

    // Where the thumbnail of each file goes, if anywhere.
    std::vector<std::optional<std::string>> thumbnails_of(const std::vector<std::string>& files) const {
        std::vector<std::optional<std::string>> thumbnails(files.size());
        if (thumbnail_folder_) {
            ThumbnailNames names(*thumbnail_folder_, files);
            std::transform(files.begin(), files.end(), thumbnails.begin(),
                           [&](const std::string& file) { return names.path_for(file); });
        }
        return thumbnails;
    }

    void tell(const Outcome& outcome, const std::string& file, const std::string& thumbnail) {
        const Json reply = read_reply(outcome.reply, Operation::kAnalysis);
        if (json_) {
            console().print(json_line(reply));
        }
        if (outcome.state != NQ360_FINISHED) {
            fail(analysis_failure(reply, file, thumbnail));
            return;
        }
        const Description found = read_description(reply);
        if (found.width <= 0 || found.height <= 0) {
            fail(no_picture(file));
            return;
        }
        ++described_;
        damaged_ += found.unread.empty() ? 0 : 1;
        if (!json_) {
            console().print(row(found, file));
        }
    }

    void fail(const std::string& why) {
        ++failed_;
        console().complain(why);
    }

    std::vector<std::string> arguments_;
    bool recursive_ = false;
    bool json_ = false;
    std::optional<std::string> thumbnail_folder_;
    int thumbnail_width_ = kThumbnailWidth;
    std::optional<int> jobs_;
    int64_t described_ = 0;
    int64_t damaged_ = 0;
    int64_t failed_ = 0;
};

}  // namespace

std::unique_ptr<Command> make_analyze(CLI::App& app) {
    return std::make_unique<Analyze>(app);
}
