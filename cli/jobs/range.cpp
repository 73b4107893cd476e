#include "jobs/range.h"

#include <algorithm>

namespace {

// A time may have been rounded when it was typed: a frame that lies so near counts as being at it.
constexpr double kTimeMargin = 1e-4;

}  // namespace

void begin_with_the_frames_meant(const Description (&lenses)[2], ExportJob* job) {
    double* const starts[] = {&job->options.start1, &job->options.start2};
    double* const ends[] = {&job->options.end1, &job->options.end2};
    for (int i = 0; i < 2; ++i) {
        const double frame = lenses[i].frame_seconds();
        *starts[i] = std::max(0.0, *starts[i] - frame - kTimeMargin);
        *ends[i] = std::max(0.0, *ends[i] - frame + kTimeMargin);
    }
}
