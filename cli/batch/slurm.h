// Slurm, by its own commands: sbatch takes the tasks, squeue tells what it does with them.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "batch/cluster_plan.h"

// Hands the tasks of the plan to Slurm, in arrays as large as it takes, and notes their numbers in `plan`; what joins
// comes after its parts. `options` go to sbatch as they are. Throws CommandError when Slurm refuses.
void submit(const std::string& to, const std::vector<std::string>& options, ClusterPlan* plan);

// Slurm's words ("RUNNING") for the tasks that it still has, by number.
std::map<size_t, std::string> tasks_in_queue(const ClusterPlan& plan);
