// Times as people mean them, and as the library takes them.
#pragma once

#include "jobs/description.h"
#include "jobs/library.h"

// Has the export begin with the frame of its start and end with that of its end. The library judges a frame by the time
// of the one before it, so its times lie one frame earlier. Only the second frame of a movie can never be the first.
void begin_with_the_frames_meant(const Description (&lenses)[2], ExportJob* job);
