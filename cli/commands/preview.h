// One panorama of a pair, written as a small picture.
#pragma once

#include <optional>

#include "jobs/arguments.h"
#include "jobs/library.h"
#include "jobs/pair_options.h"

// Stitches the pictures at the start times as `job` says, without an export, and writes job.output, a JPEG. Returns
// the exit status.
int write_preview(const PairOptions& options, const ExportJob& job, std::optional<Size> size);
