// A batch that a cluster makes: handed over, and looked after.
#pragma once

#include <string>
#include <vector>

#include "batch/batch.h"

struct ClusterSettings {
    double split = 0;                         // seconds of a movie beyond which it is made in parts; 0: never
    std::vector<std::string> sbatch_options;  // as they are
};

// Hands what is not made yet to Slurm, and returns without waiting for it. Returns the exit status; throws CommandError
// when that cannot be.
int submit_batch(const Plan& plan, const Making& making, const BatchSettings& settings, const ClusterSettings& cluster);

// Tells what of it is done, runs, waits or failed. Returns 1 when something failed, else 0.
int tell_status(const std::string& to, bool as_lines);

// Throws CommandError while Slurm has tasks for the folder.
void require_no_cluster(const std::string& to);
