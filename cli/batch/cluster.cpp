#include "batch/cluster.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>

#include "batch/assessment.h"
#include "batch/cluster_plan.h"
#include "batch/folder_lock.h"
#include "batch/journal.h"
#include "batch/path_json.h"
#include "batch/placement.h"
#include "batch/slurm.h"
#include "jobs/errors.h"
#include "terminal/console.h"

namespace fs = std::filesystem;

namespace {

std::string count_text(size_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

// "job 12: 20 shots", "job 13: 6 parts of a-360.mov", "job 14: joins a-360.mov".
std::string words_of(const ClusterPlan& plan, const ClusterJob& job) {
    const ClusterTask& task = plan.tasks[job.first];
    const std::string name = printable(plan.shots[task.shot].output);
    switch (task.kind) {
        case ClusterTask::kShot:
            return count_text(job.count, "shot", "shots");
        case ClusterTask::kPart:
            return count_text(job.count, "part", "parts") + " of " + name;
        default:
            return "joins " + name;
    }
}

void tell_jobs(const ClusterPlan& plan, const std::string& to, bool as_lines) {
    for (const ClusterJob& job : plan.jobs) {
        if (as_lines) {
            console().print(json_line({{"job", job.id}, {"first", job.first}, {"count", job.count}}));
        } else {
            console().print("job " + job.id + ": " + words_of(plan, job) + "\n");
        }
    }
    console().tell("nq360 batch --status " + printable(to) + " tells how far it is; scancel ends a job");
}

enum State { kMade, kRuns, kWaits, kFailedState, kLost };
constexpr std::array<const char*, 5> kStateWords = {"done", "running", "waiting", "failed", "lost"};

struct TaskStatus {
    State state;
    std::string why;
};

// What the journals tell counts before what Slurm does, but for a task that was begun again.
TaskStatus status_of(const ShotRecord* record, const std::string* in_queue) {
    const std::string event = record ? record->event : "";
    if (event == "done") {
        return {kMade, ""};
    }
    if (in_queue && *in_queue != "COMPLETING") {
        return {*in_queue == "RUNNING" ? kRuns : kWaits, ""};
    }
    if (event == "failed") {
        return {kFailedState, record->why};
    }
    return {kLost, event == "cancelled" ? "was cancelled" : "ended without a word; see its log"};
}

class Status {
  public:
    Status(const ClusterPlan& plan, const std::string& to)
        : plan_(plan), records_(read_journals(to)), queue_(tasks_in_queue(plan)) {}

    int tell(bool as_lines) {
        for (size_t number = 0; number < plan_.tasks.size(); ++number) {
            const TaskStatus status = status_of_task(number);
            ++counts_[status.state];
            if (as_lines) {
                tell_line(number, status);
            } else if (!status.why.empty()) {
                console().complain("task " + std::to_string(number) + ": " +
                                   (status.state == kLost ? name_of(number) + ": " : "") + status.why);
            }
        }
        if (!as_lines) {
            std::string text = count_text(plan_.tasks.size(), "task", "tasks") + ": ";
            for (size_t state = 0; state < kStateWords.size(); ++state) {
                text += (state == 0 ? "" : ", ") + std::to_string(counts_[state]) + " " + kStateWords[state];
            }
            console().print(text + "\n");
        }
        return counts_[kFailedState] + counts_[kLost] > 0 ? kFailed : kDone;
    }

  private:
    std::string name_of(size_t number) const { return printable(output_of(plan_, plan_.tasks[number])); }

    TaskStatus status_of_task(size_t number) const {
        const auto in_queue = queue_.find(number);
        const std::string* const state = in_queue == queue_.end() ? nullptr : &in_queue->second;
        const TaskStatus status = status_of(new_record_of(output_of(plan_, plan_.tasks[number])), state);
        const ClusterTask& task = plan_.tasks[number];
        // The parts go when the movie is joined.
        const ShotRecord* const whole = new_record_of(plan_.shots[task.shot].output);
        return task.kind == ClusterTask::kPart && whole && whole->event == "done" ? TaskStatus{kMade, ""} : status;
    }

    // Nothing of earlier runs.
    const ShotRecord* new_record_of(const std::string& output) const {
        const ShotRecord* const record = record_of(records_, output);
        return record && record->time >= plan_.submitted ? record : nullptr;
    }

    void tell_line(size_t number, const TaskStatus& status) const {
        Json line = {{"task", number},
                     {"output", path_json(output_of(plan_, plan_.tasks[number]))},
                     {"state", kStateWords[status.state]}};
        if (!status.why.empty()) {
            line["why"] = status.why;
        }
        console().print(json_line(line));
    }

    const ClusterPlan& plan_;
    const Records records_;
    const std::map<size_t, std::string> queue_;
    std::array<size_t, kStateWords.size()> counts_{};
};

}  // namespace

int submit_batch(const Plan& plan, const Making& making, const BatchSettings& settings,
                 const ClusterSettings& cluster) {
    std::error_code unknown;
    fs::create_directories(settings.to, unknown);
    const std::string to = fs::weakly_canonical(fs::absolute(settings.to)).string();
    const FolderLock lock(to);
    require_no_cluster(to);
    const std::vector<OutputState> states = assess(plan, making_json(making), to, read_journals(to));
    ClusterPlan shared;
    shared.making = making;
    shared.force = settings.force;
    bool all_free = true;
    for (size_t i = 0; i < plan.shots.size(); ++i) {
        if (is_to_be_made(states[i], settings.force)) {
            shared.shots.push_back(plan.shots[i]);
        } else if (states[i] == OutputState::kForeign) {
            console().complain(in_the_way((fs::path(to) / plan.shots[i].output).string()));
            all_free = false;
        }
    }
    std::vector<const PlannedShot*> shots;
    std::transform(shared.shots.begin(), shared.shots.end(), std::back_inserter(shots),
                   [](const PlannedShot& shot) { return &shot; });
    if (const std::string lack = lack_of_space(shots, to); !lack.empty()) {
        throw CommandError(lack);
    }
    shared.tasks = tasks_for(shared.shots, cluster.split);
    if (shared.tasks.empty()) {
        console().tell("nothing is to be made");
        return all_free ? kDone : kFailed;
    }
    shared.submitted = time_text();
    write_cluster_plan(to, shared);  // before any task can begin
    submit(to, cluster.sbatch_options, &shared);
    write_cluster_plan(to, shared);
    tell_jobs(shared, to, settings.as_lines);
    return all_free ? kDone : kFailed;
}

int tell_status(const std::string& to, bool as_lines) {
    const auto plan = read_cluster_plan(to);
    if (!plan) {
        throw CommandError(printable(to) + ": nothing in it was handed to a cluster");
    }
    return Status(*plan, to).tell(as_lines);
}

void require_no_cluster(const std::string& to) {
    const auto plan = read_cluster_plan(to);
    if (plan && !tasks_in_queue(*plan).empty()) {
        throw CommandError(printable(to) + ": Slurm is at work on it; nq360 batch --status " + printable(to) +
                           " tells how far it is");
    }
}
