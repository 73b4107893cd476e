// The reader of a block of camera metadata.
#include "metadata/exif.h"

#include <cstring>

#include "check.h"

namespace {

// The texts end where they should, and the rest of the program may take their length.
void read_texts(const _exif& exif) {
    for (const char* text : {exif.maker, exif.model, exif.datetime}) {
        fuzz::require(!text || std::strlen(text) <= exif.length, "a text is no longer than the block");
    }
}

void read_block(const uint8_t* data, size_t size, ExifDialect dialect) {
    _exif exif(data, size, dialect);
    read_texts(exif);
    if (exif.isTarget()) {
        fuzz::require(exif.maker && exif.model, "a target has a maker and a model");
    }
    // The steps are public: whoever calls them may have any offset.
    if (size >= 8) {
        int32_t offsets[2];
        std::memcpy(offsets, data + size - sizeof offsets, sizeof offsets);
        _line line;
        exif.read_line(offsets[0], &line);
        exif.import_line(line);
        exif.read_makertag(offsets[0]);
        exif.read_block(offsets[1]);
        read_texts(exif);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    read_block(data, size, ExifDialect::kCamera);
    read_block(data, size, ExifDialect::kAny);
    return 0;
}
