// The whole analysis of a picture.
#include "analysis.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = fuzz::path_of("input.jpg");
    fuzz::analyze(path, data, size);
    return 0;
}
