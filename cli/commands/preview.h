// One panorama of a pair, written as a small picture.
#pragma once

#include "jobs/library.h"

// Makes the panorama of the frames at the start times and writes job.output, a JPEG. Returns the exit status.
int write_preview(const ExportJob& job);
