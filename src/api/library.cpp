// What the library says of itself, and how its memory is released.
#include <cstdlib>

#include "nq360.h"

void NQ360_free(void* memory) {
    std::free(memory);  // NOLINT(cppcoreguidelines-owning-memory): what the library hands out is the caller's
}

const char* NQ360_version() {
    return NQ360_VERSION;
}
