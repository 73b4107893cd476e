#include "base/progress.h"

int nq360_update_frame(int64_t total) {
    return total < 1010 ? 10 : 100;
}
