// How the panoramas of a batch are made: what of its options shapes them.
#pragma once

#include "batch/file_state.h"
#include "jobs/export_arguments.h"
#include "jobs/replies.h"

struct Making {
    ExportArguments arguments;  // without files: these are each shot's
    bool match = false;
    bool sound_asked_for = false;  // so that a shot without it fails
};

// All that shapes a panorama, and nothing else: two batches of the same JSON make the same files. Throws CommandError
// when the band is no file.
Json making_json(const Making& making);

// Throws Json::exception where something is missing.
Making making_of(const Json& json);
