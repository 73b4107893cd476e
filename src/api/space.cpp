// The free room of a volume.
#include "base/files.h"
#include "nq360.h"

unsigned long long NQ360_freesize(const char* path) {
    try {
        return nq360_freesize(path);
    } catch (...) {
        return 0;  // no memory to take the path apart; a C caller must not meet the exception
    }
}
