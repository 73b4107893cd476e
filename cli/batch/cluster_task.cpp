#include "batch/cluster_task.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include <unistd.h>

#include "batch/cluster_plan.h"
#include "batch/journal.h"
#include "batch/placement.h"
#include "batch/shot_maker.h"
#include "batch/work_folder.h"
#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/in_order.h"
#include "jobs/library.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace fs = std::filesystem;

namespace {

std::string name_of_process() {
    char host[256] = "";
    gethostname(host, sizeof(host) - 1);
    return std::string(host) + "-" + std::to_string(getpid());
}

constexpr long kMostCores = 256;  // parts of a movie at a time

// Cores that Slurm has given to the task, which may be fewer than the node has.
int cores_of_task() {
    const char* given = std::getenv("SLURM_CPUS_ON_NODE");
    const long cores = given ? std::strtol(given, nullptr, 10) : 0;
    return cores > 0 && cores < kMostCores ? static_cast<int>(cores) : core_count();
}

class TaskRunner {
  public:
    TaskRunner(const std::string& to, const ClusterPlan& plan, size_t number)
        : to_(to),
          plan_(plan),
          task_(plan.tasks[number]),
          shot_(plan.shots[task_.shot]),
          output_(output_of(plan, task_)),
          beginning_("task-" + std::to_string(number) + "-"),
          making_json_(making_json(plan.making)),
          journal_(to, beginning_ + name_of_process()),
          records_(read_journals(to)) {}

    int run() {
        const auto begun = std::chrono::steady_clock::now();
        try {
            const Json key = key_of_task(task_);
            const bool is_joined =
                task_.kind == ClusterTask::kPart && is_made(shot_.output, key_of(shot_, making_json_));
            if (is_joined || is_made(output_, key)) {
                console().tell(printable(output_) + ": is made already");
                return kDone;
            }
            journal_.append(begun_event(output_));
            if (!make(key)) {
                journal_.append(cancelled_event(output_));
                console().complain("cancelled");
                return kCancelled;
            }
        } catch (const CommandError& error) {
            journal_.append(failed_event(output_, error.what()));
            throw;
        }
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
        if (!console().quiet()) {
            console().print(printable(output_) + ": in " + decimal_text(seconds) + " s\n");
        }
        return kDone;
    }

  private:
    // Whether it was not stopped.
    bool make(const Json& key) {
        const WorkFolder work_folder(to_, beginning_ + name_of_process());
        const std::string file = work_folder.file("made", output_);
        const Stoppable stoppable("this frame is made");
        const bool made = task_.kind == ClusterTask::kJoin ? join(file) : make_panorama(file);
        if (made) {
            if (key_of_task(task_) != key) {
                throw CommandError(printable(shot_.lens[0]) + ", " + printable(shot_.lens[1]) +
                                   ": changed while they were read");
            }
            const bool force = plan_.force || task_.kind == ClusterTask::kPart;  // nobody else's is among these
            const Placement placement = {
                file, output_, (fs::path(to_) / output_).string(), key, record_of(records_, output_), force};
            write_to_disk(placement);
            put_in_place(placement, [this](const Json& event) { journal_.append(event); });
            remove_what_is_left();
        }
        return made;
    }

    bool make_panorama(const std::string& file) const {
        const MakingOrder order = {shot_, output_, file, cores_of_task(), task_.part, task_.parts};
        const MadeShot made = make_shot(plan_.making, order, [](double) { return interrupted(); });
        for (const std::string& notice : made.notices) {
            console().tell(notice);
        }
        return !made.cancelled;
    }

    bool join(const std::string& file) const {
        JoinJob job;
        job.output = file;
        job.cancel_path = cancel_path();
        std::string missing;
        for (int part = 1; part <= task_.parts; ++part) {
            const ClusterTask maker = {ClusterTask::kPart, task_.shot, part, task_.parts};
            const std::string name = output_of(plan_, maker);
            if (!is_made(name, key_of_task(maker))) {
                missing += (missing.empty() ? "" : ", ") + std::to_string(part);
            }
            job.files.push_back((fs::path(to_) / name).string());
        }
        if (!missing.empty()) {
            throw CommandError(printable(output_) + ": of its " + std::to_string(task_.parts) +
                               " parts these are not made: " + missing);
        }
        const Outcome outcome = join_shares(job, [](NQ360_STATE, const std::string&) { return interrupted(); });
        if (outcome.state == NQ360_FAILED) {
            throw CommandError(join_failure(read_reply(outcome.reply, Operation::kExport), job));
        }
        return outcome.state == NQ360_FINISHED;
    }

    Json key_of_task(const ClusterTask& task) const {
        Json key = key_of(shot_, making_json_);
        if (task.kind == ClusterTask::kPart) {
            key["part"] = std::to_string(task.part) + "/" + std::to_string(task.parts);
        }
        return key;
    }

    bool is_made(const std::string& output, const Json& key) const {
        const OutputState state = output_state(record_of(records_, output), key, (fs::path(to_) / output).string());
        return state == OutputState::kDone || state == OutputState::kPlaced;
    }

    // Of processes that were at the same task and died, and of a movie its parts.
    void remove_what_is_left() const {
        remove_work_folders(to_, beginning_);
        if (task_.kind == ClusterTask::kJoin) {
            std::error_code ignored;
            fs::remove_all((fs::path(to_) / part_file(task_.shot, 1, task_.parts)).parent_path(), ignored);
        }
    }

    const std::string& to_;
    const ClusterPlan& plan_;
    const ClusterTask& task_;
    const PlannedShot& shot_;
    const std::string output_;
    const std::string beginning_;
    const Json making_json_;
    Journal journal_;
    const Records records_;
};

}  // namespace

int run_cluster_task(const std::string& to, size_t number) {
    const auto plan = read_cluster_plan(to);
    if (!plan) {
        throw CommandError(printable(to) + ": nothing in it was handed to a cluster");
    }
    if (number >= plan->tasks.size()) {
        throw CommandError(printable(to) + ": has tasks 0 to " + std::to_string(plan->tasks.size() - 1));
    }
    return TaskRunner(to, *plan, number).run();
}
