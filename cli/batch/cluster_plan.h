// A batch that is shared out to the tasks of a cluster: what each of them is to make. It lies in the panoramas' folder,
// which all machines see; no path and no option goes through a shell.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "batch/making.h"
#include "batch/plan.h"

struct ClusterTask {
    enum Kind {
        kShot,  // a whole panorama
        kPart,  // part `part` of `parts` of a movie
        kJoin   // the movie out of its parts
    };
    Kind kind = kShot;
    size_t shot = 0;
    int part = 0;
    int parts = 0;
};

// Tasks that were handed to Slurm as one array.
struct ClusterJob {
    std::string id;
    size_t first = 0;  // task; its index in the array is 0
    size_t count = 0;
};

struct ClusterPlan {
    Making making;
    bool force = false;
    std::string submitted;  // when, as the journals have it: older lines tell of other runs
    std::vector<PlannedShot> shots;
    std::vector<ClusterTask> tasks;
    std::vector<ClusterJob> jobs;
};

// The tasks for these shots: those of whole panoramas come first, then of each movie that is longer than `split`
// seconds its parts and their joining. 0: none is split.
std::vector<ClusterTask> tasks_for(const std::vector<PlannedShot>& shots, double split);

// Where a task's file lies, below the panoramas' folder: a panorama at its place, a part among the batch's own files.
std::string output_of(const ClusterPlan& plan, const ClusterTask& task);
std::string part_file(size_t shot, int part, int parts);

// Throw CommandError when that fails or, but for nothing where there is none, when what is there is damaged.
void write_cluster_plan(const std::string& to, const ClusterPlan& plan);
std::optional<ClusterPlan> read_cluster_plan(const std::string& to);
