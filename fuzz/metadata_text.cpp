// The text that an export writes into its panorama.
#include "metadata/capture_time.h"
#include "readers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int32_t sides[2] = {};
    const bool picture = size > 0 && data[0] % 2 != 0;
    const size_t head = 1 + sizeof sides;
    if (size >= head) {
        std::memcpy(sides, data + 1, sizeof sides);
    }
    const std::string date = size > head ? std::string(reinterpret_cast<const char*>(data + head), size - head) : "";
    const fuzz::Text text(TALUMO360ViewerMetadata(picture, sides[0], sides[1], date.c_str()));
    fuzz::require(std::strlen(text.get()) < 10240, "the text fits its buffer");
    const bool plain = date.find_first_of("<>") == std::string::npos;
    if (plain) {
        fuzz::require(fuzz::recognise(text.get()) == 0, "the software recognises its own text");
    }
    const std::string packet = gpano_packet(sides[0], sides[1], date);
    const std::string document = spherical_video_document(sides[0], sides[1], date);
    for (std::string standard : {packet, document}) {
        fuzz::require(fuzz::recognise(standard.data()) == 0, "the software recognises its standard texts");
    }
    exif_date_of(date);
    return 0;
}
