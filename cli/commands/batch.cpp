// nq360 batch
#include "batch/batch.h"

#include "batch/assessment.h"
#include "batch/cluster.h"
#include "batch/cluster_task.h"
#include "batch/plan_text.h"
#include "commands/command.h"
#include "jobs/band.h"
#include "jobs/errors.h"
#include "jobs/option.h"
#include "jobs/shot_export.h"
#include "jobs/size_text.h"
#include "terminal/interrupt.h"

namespace {

std::optional<NamePattern> parse_pattern(const std::string& text) {
    return NamePattern(text);
}

class BatchCommand : public Command {
  public:
    explicit BatchCommand(CLI::App& app)
        : Command(app, "batch",
                  "Makes the panoramas of all shots in folders. The halves of a shot are found by what their files "
                  "tell and by their names. A shot that fails is named and the others go on. What is made already is "
                  "left as it is: begun again, it does what is missing or was made otherwise.") {
        parser()
            .add_option("FOLDER", request_.folders, "folder with the pictures and movies of both lenses")
            ->option_text("FOLDER...");
        parser()
            .add_option("--to", request_.to, "folder of the panoramas, made where there is none")
            ->option_text("DIR");
        parser().add_flag("-r,--recursive", request_.recursive, "the folders in them too, made below DIR likewise");
        add_parsed(parser(), "--pairs", request_.pattern, parse_pattern, "PATTERN",
                   "how the halves are called where their names differ otherwise than usual, such as "
                   "'{shot}_lens{lens}'");
        add_panorama_options(parser(), making_.arguments,
                             "make so many shots at a time (one per core, fewer where memory is short)");
        parser().add_flag("--match", making_.match, "match the lenses of each shot first, as 'nq360 match' does");
        parser().add_flag("--dry-run", dry_run_, "print the plan and write nothing");
        parser().add_flag("--json", settings_.as_lines, "print the plan, or what is made, one JSON object a line");
        parser().add_flag("-f,--force", settings_.force, "replace files in DIR that are not this command's");
        parser().add_flag("--slurm", slurm_,
                          "hand the shots to Slurm, one task each; what follows '--' goes to sbatch");
        add_parsed(parser(), "--split", split_, parse_seconds, "TIME",
                   "with --slurm: make longer movies in parts of this length, a task each");
        add_text(parser(), "--status", status_, "DIR", "tell what Slurm has done of it, and nothing else");
        parser()
            .add_option("--task", task_, "make task N of what was handed over to DIR, and nothing else")
            ->option_text("N");
        // The words behind "--", as the program's main function writes them.
        parser().add_option("--sbatch", cluster_.sbatch_options, "")->group("");
        add_loudness();
    }

  private:
    int run() override {
        if (status_) {
            return tell_status(*status_, settings_.as_lines);
        }
        check_arguments();
        if (task_) {
            return run_cluster_task(request_.to, *task_);
        }
        if (!dry_run_) {
            require_no_cluster(request_.to);
        }
        const std::optional<Plan> plan = make_plan(request_, making_.arguments);
        if (!plan) {
            console().complain("cancelled");
            return kCancelled;
        }
        if (dry_run_) {
            return print_plan(*plan);
        }
        for (const LeftOut& file : plan->left_out) {
            file.is_damaged ? console().complain(file.why) : console().tell("left out: " + file.why);
        }
        return slurm_ ? submit_batch(*plan, making_, settings_, cluster_) : run_batch(*plan, making_, settings_);
    }

    void check_arguments() {
        if (request_.to.empty()) {
            throw UsageError("--to: the folder of the panoramas is missing");
        }
        if (request_.folders.empty() && !task_) {
            throw UsageError("FOLDER: name the folder with the pictures and movies");
        }
        if (!slurm_ && (split_ || !cluster_.sbatch_options.empty())) {
            throw UsageError("--split and what follows '--' are for --slurm");
        }
        cluster_.split = split_.value_or(0);
        ExportArguments& arguments = making_.arguments;
        check_range(arguments.pair);
        if (arguments.band) {
            check_band(*arguments.band);
        }
        if (arguments.size) {
            check_size(*arguments.size);
        }
        making_.sound_asked_for = parser().get_option("--sound")->count() > 0;
        settings_.to = request_.to;
        settings_.at_a_time = arguments.jobs;
        arguments.jobs.reset();  // how many parts of a movie are made at a time depends on the other shots
    }

    int print_plan(const Plan& plan) const {
        const std::vector<OutputState> states =
            assess(plan, making_json(making_), settings_.to, read_journals(settings_.to));
        const std::vector<const PlannedShot*> shots = shots_to_make(plan, states, settings_.force);
        console().print(settings_.as_lines ? plan_lines(plan, states) : plan_table(plan, states));
        console().tell(std::to_string(shots.size()) + " of " + std::to_string(states.size()) +
                       " shots are to be made; " + bytes_text(space_needed(shots)) + " are needed, " +
                       bytes_text(free_space(settings_.to)) + " are free");
        const std::string lack = lack_of_space(shots, settings_.to);
        if (!lack.empty()) {
            console().complain(lack);
        }
        return lack.empty() ? kDone : kFailed;
    }

    PlanRequest request_;
    Making making_;
    BatchSettings settings_;
    ClusterSettings cluster_;
    bool slurm_ = false;
    std::optional<double> split_;
    std::optional<std::string> status_;
    std::optional<size_t> task_;
    bool dry_run_ = false;
};

}  // namespace

std::unique_ptr<Command> make_batch(CLI::App& app) {
    return std::make_unique<BatchCommand>(app);
}
