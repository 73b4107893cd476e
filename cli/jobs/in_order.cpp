#include "jobs/in_order.h"

#include <sched.h>

int core_count() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    return sched_getaffinity(0, sizeof(cores), &cores) == 0 ? CPU_COUNT(&cores) : 1;  // it fails beyond 1024 cores
}
