// nq360 export
#include <algorithm>
#include <cctype>

#include "commands/command.h"
#include "commands/preview.h"
#include "jobs/arguments.h"
#include "jobs/description.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/job.h"
#include "jobs/pair_options.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace {

constexpr float kWholeMovie = 1e9F;  // seconds; the library holds an end to the movie's own

bool ends_in(const std::string& path, std::initializer_list<const char*> extensions) {
    const size_t dot = path.rfind('.');
    std::string extension = dot == std::string::npos ? "" : path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::any_of(extensions.begin(), extensions.end(), [&](const char* one) { return extension == one; });
}

// Twice the lens width rounded down to a usual width (1440: 2880, 1936: 3840, 3888: 7680), and for movies no
// more than the encoder takes.
Size default_size(int lens_width, bool movie) {
    constexpr int kStep = 960;
    constexpr int kWidestMovie = 4096;
    int width = std::max(2 * lens_width / kStep, 1) * kStep;
    if (movie) {
        width = std::min(width, kWidestMovie);
    }
    return {width, width / 2};
}

class Export : public Command {
  public:
    explicit Export(CLI::App& app)
        : Command(app, "export",
                  "Stitches the two halves of a shot into one panorama. Two pictures make a picture, movies make a "
                  "movie. Ctrl-C stops it and leaves no file.") {
        add_lenses(parser(), pair_);
        parser().add_option("OUT", job_.output, "panorama: .jpg of two pictures, .mov or .mp4 of movies")->required();
        parser().add_flag("--preview", preview_,
                          "write the one panorama at the start as a small picture (.jpg), to try angles and "
                          "corrections");
        add_parsed(parser(), "--size", size_, parse_size, "WxH",
                   "pixels of the panorama (twice the lens width, in a movie at most 4096x2048; preview 1024x512)");
        add_parsed(parser(), "--tilt", job_.tilt, parse_whole_degrees, "DEGREES",
                   "turn the panorama, whole degrees: with 0 lens 1 looks up, with 90 lens 2 looks at the middle, with "
                   "-90 lens 1 does (0)");
        add_turns(parser(), pair_);
        add_parsed(parser(), "--correct1", job_.corrections[0], parse_correction, "Y,U,V",
                   "add to brightness and colour of lens 1, each -255 to 255; - leaves one alone");
        add_parsed(parser(), "--correct2", job_.corrections[1], parse_correction, "Y,U,V", "the same for lens 2");
        add_text(parser(), "--band", job_.band, "FILE", "lay this picture, a strip, over the seam");
        add_parsed(parser(), "--sound", job_.sound, parse_sound, "1|2|none", "whose sound the movie gets (1)");
        add_starts(parser(), pair_);
        add_parsed(parser(), "--end", ends_[0], parse_seconds, "TIME", "where to end (the end of the movies)");
        add_parsed(parser(), "--end2", ends_[1], parse_seconds, "TIME", "the same for lens 2");
        add_text(parser(), "--date", date_, "TEXT", "capture date in the metadata (that of lens 1)");
        parser().add_flag("-f,--force", force_, "replace OUT when it exists");
        add_loudness();
    }

  private:
    int run() override {
        check_range();
        const Description lens1 = describe(pair_.lens[0]);
        const Description lens2 = describe(pair_.lens[1]);
        makes_picture_ = preview_ || (lens1.is_picture && lens2.is_picture);
        check_output_name();
        check_output(job_.output, force_, {pair_.lens[0], pair_.lens[1], job_.band.value_or("")});
        check_starts(lens1, lens2);
        if (preview_) {
            return write_preview(pair_, job_, size_);
        }
        complete_job(lens1);
        return write_panorama();
    }

    void check_output_name() const {
        if (makes_picture_ && !ends_in(job_.output, {".jpg", ".jpeg"})) {
            throw UsageError(printable(job_.output) + (preview_ ? ": a preview is" : ": two pictures make") +
                             " a picture; let its name end in .jpg");
        }
        if (!makes_picture_ && !ends_in(job_.output, {".mov", ".mp4"})) {
            throw UsageError(printable(job_.output) + ": movies make a movie; let its name end in .mov or .mp4");
        }
    }

    // Unless told otherwise as much of lens 2 as of lens 1.
    std::optional<double> end(int which) const {
        if (which == 0 || ends_[1] || !ends_[0]) {
            return ends_[which];
        }
        return pair_.start(1) + *ends_[0] - pair_.start(0);
    }

    void check_range() const {
        for (int i = 0; i < 2; ++i) {
            if (end(i) && *end(i) <= pair_.start(i)) {
                throw UsageError("the end of the range, " + clock_text(*end(i)) + ", does not lie behind its start");
            }
        }
    }

    void check_starts(const Description& lens1, const Description& lens2) const {
        const Description* lenses[] = {&lens1, &lens2};
        for (int i = 0; i < 2; ++i) {
            const bool has_length = !lenses[i]->is_picture && lenses[i]->duration > 0;
            if (has_length && pair_.start(i) >= lenses[i]->duration) {
                throw CommandError(printable(pair_.lens[i]) + ": lasts " + decimal_text(lenses[i]->duration) +
                                   " seconds, so nothing of it is left at the start asked for");
            }
        }
    }

    void complete_job(const Description& lens1) {
        const Size size = size_.value_or(default_size(lens1.width, !makes_picture_));
        job_.width = size.width;
        job_.height = size.height;
        job_.date = date_.value_or(lens1.datetime);
        for (int i = 0; i < 2; ++i) {
            job_.inputs[i] = pair_.lens[i];
            job_.turns[i] = pair_.turns[i];
            job_.starts[i] = static_cast<float>(pair_.start(i));
            job_.ends[i] = end(i) ? static_cast<float>(*end(i)) : kWholeMovie;
        }
    }

    int write_panorama() const {
        double seconds = 0;
        const auto function = [this](const std::string& cancel_path, const FrameHandler& handler) {
            return export_panorama(job_, cancel_path, handler);
        };
        const Outcome outcome = run_job(job_.output, "frames", function, &seconds);
        if (outcome.state == NQ360_CANCELLED) {
            console().complain("cancelled; no file is left");
            return kCancelled;
        }
        if (outcome.state != NQ360_FINISHED) {
            throw CommandError(export_failure(read_reply(outcome.reply, Operation::kExport), job_));
        }
        tell_result(seconds);
        return kDone;
    }

    void tell_result(double seconds) const {
        if (console().quiet()) {
            return;
        }
        const Description made = describe(job_.output);
        const std::string frames = made.is_picture ? "" : ", " + std::to_string(made.frames) + " frames";
        console().print(printable(job_.output) + ": " + std::to_string(made.width) + "x" + std::to_string(made.height) +
                        frames + ", in " + decimal_text(seconds) + " s\n");
    }

    PairOptions pair_;
    ExportJob job_;
    std::optional<Size> size_;
    std::optional<double> ends_[2];
    std::optional<std::string> date_;
    bool force_ = false;
    bool preview_ = false;
    bool makes_picture_ = false;
};

}  // namespace

std::unique_ptr<Command> make_export(CLI::App& app) {
    return std::make_unique<Export>(app);
}
