// What an order of the page means: the jobs that `nq360 export` and `nq360 audio` would run. Where they are made, and
// how they get their place, is left to whoever queues them.
#pragma once

#include <string>

#include "adjustments.h"
#include "catalog.h"
#include "export_queue.h"

// A panorama of a pair. The job's lenses and output are filled in already.
QueuedJob order_panorama(const ListedShot& shot, ExportJob job, const Settings& settings);

// The sound of a movie.
QueuedJob order_sound(const std::string& name, const SoundJob& job);

// How the name of a panorama ends: "-360.jpg".
std::string ending_of_panorama(const ListedShot& shot);
