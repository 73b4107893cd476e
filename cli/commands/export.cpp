// nq360 export
#include <algorithm>
#include <cctype>

#include "commands/command.h"
#include "commands/preview.h"
#include "jobs/band.h"
#include "jobs/description.h"
#include "jobs/errors.h"
#include "jobs/export_arguments.h"
#include "jobs/failure.h"
#include "jobs/job.h"
#include "jobs/option.h"
#include "jobs/proposal.h"
#include "jobs/range.h"
#include "jobs/shot_export.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace {

std::string lower_case_extension(const std::string& path) {
    const size_t dot = path.rfind('.');
    std::string extension = dot == std::string::npos ? "" : path.substr(dot);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool ends_in(const std::string& path, std::initializer_list<const char*> extensions) {
    const std::string extension = lower_case_extension(path);
    return std::any_of(extensions.begin(), extensions.end(), [&](const char* one) { return extension == one; });
}

class Export : public Command {
  public:
    explicit Export(CLI::App& app)
        : Command(app, "export",
                  "Stitches the two halves of a shot into one panorama. Two pictures make a picture, movies make a "
                  "movie. Ctrl-C stops it; what stood at OUT stays until the panorama is whole.") {
        add_export_arguments(parser(), arguments_);
        parser().add_flag("--match", match_,
                          "match the lenses first, as 'nq360 match' does, and export with what it proposes");
        add_parsed(parser(), "--part", share_, parse_share, "K/N",
                   "make the K-th of N parts of a movie, in a file for 'nq360 join'");
        parser().add_flag("--preview", preview_,
                          "write the one panorama at the start as a small picture (.jpg), to try angles and "
                          "corrections");
        parser().add_flag("--dry-run", dry_run_, "check everything and write nothing");
        parser().add_flag("--json", json_, "print the library's replies, one JSON object a line");
        parser().add_flag("-f,--force", force_, "replace OUT when it exists");
        add_loudness();
    }

  private:
    int run() override {
        check_lenses(arguments_.pair);
        check_range(arguments_.pair);
        for (int i = 0; i < 2; ++i) {
            lenses_[i] = describe(arguments_.pair.lens[i]);
        }
        from_pictures_ = lenses_[0].is_picture && lenses_[1].is_picture;
        makes_picture_ = preview_ || from_pictures_;
        choose_output();
        check_starts(arguments_.pair, lenses_);
        if (arguments_.band) {
            check_band(*arguments_.band);
        }
        if (!makes_picture_) {
            tell(check_sound(arguments_, parser().get_option("--sound")->count() > 0));
        }
        tell_what_may_surprise();
        ExportJob job = complete_job(arguments_, lenses_);
        if (preview_ && !arguments_.quality) {
            job.options.quality = 0;  // what is enough for one
        }
        job.options.part = share_.number;
        job.options.parts = share_.count;
        if (match_ && !match(&job)) {
            return end_cancelled();
        }
        return preview_ ? write_preview(job) : write_panorama(job);
    }

    void choose_output() {
        const std::string& lens1 = arguments_.pair.lens[0];
        std::string& output = arguments_.output;
        if (share_.count > 0) {
            choose_share(&output);
            return;
        }
        output = output_file(output, lens1, preview_ ? "-preview.jpg" : usual_ending(makes_picture_, lens1));
        if (makes_picture_ && !ends_in(output, {".jpg", ".jpeg"})) {
            throw UsageError(printable(output) + (preview_ ? ": a preview is" : ": two pictures make") +
                             " a picture; let its name end in .jpg");
        }
        if (!makes_picture_ && !ends_in(output, {".mov", ".mp4"})) {
            throw UsageError(printable(output) + ": movies make a movie; let its name end in .mov or .mp4");
        }
        check_free(output);
    }

    void choose_share(std::string* output) const {
        if (makes_picture_) {
            throw UsageError("--part: only a movie is made in parts");
        }
        *output = output_file(*output, arguments_.pair.lens[0],
                              "-360." + std::to_string(share_.number) + "of" + std::to_string(share_.count) + ".part");
        if (!ends_in(*output, {".part"})) {
            throw UsageError(printable(*output) + ": is to be a part of a movie; let its name end in .part");
        }
        check_free(*output);
    }

    void check_free(const std::string& output) const {
        const PairArguments& pair = arguments_.pair;
        check_output(output, force_ || dry_run_, {pair.lens[0], pair.lens[1], arguments_.band.value_or("")});
    }

    void tell_what_may_surprise() {
        if (arguments_.size) {
            check_size(*arguments_.size);
        }
        const std::string idle = idle_options(parser(), makes_picture_, from_pictures_);
        if (!idle.empty()) {
            console().tell(idle + ": of no effect on what is made here");
        }
        if (!makes_picture_) {
            tell(uneven_lengths(arguments_.pair, lenses_));
        }
    }

    static void tell(const std::string& notice) {
        if (!notice.empty()) {
            console().tell(notice);
        }
    }

    // Whether it was not stopped.
    static bool match(ExportJob* job) {
        Json reply;
        const std::optional<Proposal> proposal = propose(*job, &reply);
        if (!proposal) {
            return false;
        }
        console().tell(apply_match(*proposal, job));
        return true;
    }

    int write_panorama(ExportJob job) const {
        if (!arguments_.exact) {
            begin_with_the_frames_meant(lenses_, &job);
        }
        job.cancel_path = cancel_path();
        const JobWords words = {Operation::kExport, "frames",
                                makes_picture_ ? "the picture is made" : "this frame is made", json_};
        const bool dry = dry_run_;
        int64_t frames = 0;
        const auto function = [&](const ReplyHandler& handler) {
            return export_panorama(job, [&](NQ360_STATE state, const std::string& reply) {
                frames = last_number(reply, "frame_count");
                return handler(state, reply) || dry;  // cancelled once all that comes before the first frame went well
            });
        };
        double seconds = 0;
        const Outcome outcome = run_job(job.output, words, function, &seconds);
        const Json reply = read_reply_with_state(outcome.state, outcome.reply, Operation::kExport);
        if (json_ && !dry_run_) {
            console().print(json_line(reply));
        }
        if (outcome.state == NQ360_CANCELLED) {
            return dry_run_ && !interrupted() ? end_dry_run(job, frames) : end_cancelled();
        }
        if (outcome.state != NQ360_FINISHED) {
            throw CommandError(export_failure(reply, job));
        }
        tell_result(job, reply, seconds);
        return kDone;
    }

    static int end_cancelled() {
        console().complain("cancelled; nothing is changed");
        return kCancelled;
    }

    int end_dry_run(const ExportJob& job, int64_t frames) const {
        if (!console().quiet() && !json_) {
            const std::string count = makes_picture_ ? "" : ", about " + std::to_string(frames) + " frames";
            console().print(printable(job.output) + ": can be made" + count + "; nothing is written\n");
        }
        return kDone;
    }

    void tell_result(const ExportJob& job, const Json& reply, double seconds) const {
        if (const std::string missing = missing_parts(reply, job); !missing.empty()) {
            console().complain(missing);
        }
        if (console().quiet() || json_) {
            return;
        }
        if (share_.count > 0) {
            console().print(printable(job.output) + ": part " + std::to_string(share_.number) + " of " +
                            std::to_string(share_.count) + ", in " + decimal_text(seconds) + " s\n");
            return;
        }
        const Description made = describe(job.output);
        const std::string frames = made.is_picture ? "" : ", " + std::to_string(made.frames) + " frames";
        console().print(printable(job.output) + ": " + std::to_string(made.width) + "x" + std::to_string(made.height) +
                        frames + ", in " + decimal_text(seconds) + " s\n");
    }

    ExportArguments arguments_;
    Description lenses_[2];
    Share share_;  // of which count 0: the whole movie
    bool match_ = false;
    bool preview_ = false;
    bool dry_run_ = false;
    bool json_ = false;
    bool force_ = false;
    bool from_pictures_ = false;
    bool makes_picture_ = false;
};

}  // namespace

std::unique_ptr<Command> make_export(CLI::App& app) {
    return std::make_unique<Export>(app);
}
