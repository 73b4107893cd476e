// The search for the stitching software in an XMP text.
#include "readers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    // Cut into pieces in place, so the text is in a buffer of just its size.
    const auto copy = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    const int result = fuzz::recognise(copy.get());
    fuzz::require(result >= -1 && result <= 1, "the result is -1, 0 or 1");
    return 0;
}
