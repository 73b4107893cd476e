#include "batch/slurm.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <sstream>

#include "batch/journal.h"
#include "jobs/errors.h"
#include "jobs/program.h"
#include "jobs/whole_file.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kUsualMostInArray = 1001;  // Slurm's own default

constexpr const char* kScript =
    "#!/bin/sh\n"
    "# One task of a batch: PROGRAM FOLDER NUMBER-OF-THE-FIRST\n"
    "exec \"$1\" batch --to \"$2\" --task \"$(($3 + SLURM_ARRAY_TASK_ID))\"\n";

size_t most_in_array() {
    static const std::regex kMost("MaxArraySize += ([0-9]+)");
    const std::string settings = ask_program({"scontrol", "show", "config"}).value_or("");
    std::smatch found;
    return std::regex_search(settings, found, kMost) ? std::max<size_t>(std::stoul(found.str(1)), 2)
                                                     : kUsualMostInArray;
}

class Submission {
  public:
    Submission(const std::string& to, const std::vector<std::string>& options, ClusterPlan* plan)
        : to_(to), notes_(fs::path(to) / kNotesFolder), options_(options), plan_(plan), most_(most_in_array()) {
        write_whole(script(), kScript);
        fs::create_directories(notes_ / "logs");
    }

    void submit() {
        size_t first = 0;
        while (first < plan_->tasks.size()) {
            const ClusterTask& task = plan_->tasks[first];
            size_t end = first;
            while (end < plan_->tasks.size() && belong_together(task, plan_->tasks[end])) {
                ++end;
            }
            submit_tasks(first, end);
            first = end;
        }
    }

  private:
    std::string script() const { return (notes_ / "task.sh").string(); }

    // All whole panoramas; the parts of one movie; one joining.
    static bool belong_together(const ClusterTask& one, const ClusterTask& other) {
        return one.kind == other.kind && (one.kind == ClusterTask::kShot || one.shot == other.shot);
    }

    void submit_tasks(size_t first, size_t end) {
        const bool joins = plan_->tasks[first].kind == ClusterTask::kJoin;
        const std::string after = joins ? "afterany" + parts_ : "";
        parts_.clear();
        for (; first < end; first += most_) {
            const size_t count = std::min(most_, end - first);
            const std::string id = submit_array(first, count, after);
            plan_->jobs.push_back({id, first, count});
            parts_ += ":" + id;
        }
    }

    std::string submit_array(size_t first, size_t count, const std::string& after) const {
        std::vector<std::string> arguments = {"sbatch",
                                              "--parsable",
                                              "--requeue",
                                              "--job-name=nq360",
                                              "--chdir=" + notes_.string(),
                                              "--output=logs/%A_%a.log",
                                              "--array=0-" + std::to_string(count - 1)};
        arguments.insert(arguments.end(), options_.begin(), options_.end());
        if (!after.empty()) {
            arguments.push_back("--dependency=" + after);
        }
        arguments.insert(arguments.end(),
                         {script(), fs::read_symlink("/proc/self/exe").string(), to_, std::to_string(first)});
        const std::string printed = run_program(arguments);
        std::string id = printed.substr(0, printed.find_first_of(";\n"));  // the cluster's name may follow
        if (id.empty() || id.find_first_not_of("0123456789") != std::string::npos) {
            throw CommandError("sbatch: printed no job's number");
        }
        return id;
    }

    const std::string& to_;
    const fs::path notes_;
    const std::vector<std::string>& options_;
    ClusterPlan* plan_;
    const size_t most_;
    std::string parts_;  // ":12:13", the jobs that a joining comes after
};

}  // namespace

void submit(const std::string& to, const std::vector<std::string>& options, ClusterPlan* plan) {
    Submission(to, options, plan).submit();
}

std::map<size_t, std::string> tasks_in_queue(const ClusterPlan& plan) {
    std::map<size_t, std::string> states;
    std::istringstream lines(
        ask_program({"squeue", "--me", "--noheader", "--array", "--format=%F %K %T"}).value_or(""));
    std::string id;
    std::string index;
    std::string state;
    while (lines >> id >> index >> state) {
        for (const ClusterJob& job : plan.jobs) {
            if (job.id == id && index.find_first_not_of("0123456789") == std::string::npos) {
                states[job.first + std::stoul(index)] = state;
            }
        }
    }
    return states;
}
