// One task of a batch on a cluster.
#pragma once

#include <string>

// Makes the file of the task of that number, unless it is made already, and puts it in its place. Two processes may be
// at the same task, where the cluster took one for dead: each works in a folder of its own, and the last one to be done
// leaves the same bytes. Returns the exit status; throws CommandError when it fails.
int run_cluster_task(const std::string& to, size_t number);
