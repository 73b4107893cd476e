#include "sample/camera_metadata.h"

#include <utility>
#include <vector>

namespace sample {
namespace {

using namespace test_support;

Bytes fill(MetadataBlock block, const CameraTags& tags) {
    std::vector<Bytes> exif{block.entry_text(0x9003, tags.datetime)};
    if (tags.maker_note) {
        exif.push_back(block.entry_makernote({entry_short(0x3000, static_cast<uint16_t>(tags.capture_mode)),
                                              entry_short(0x4003, static_cast<uint16_t>(tags.tag_4003)),
                                              entry_short(0x4034, static_cast<uint16_t>(tags.tag_4034)),
                                              entry_long(0x6300, tags.multi_capture),
                                              entry_byte(0x6301, static_cast<uint8_t>(tags.camera_orientation))}));
    }
    const uint32_t exif_offset = block.put_directory(exif);
    const Bytes make = block.entry_text(0x010F, tags.make);
    const Bytes model = block.entry_text(0x0110, tags.model);
    block.set_start(block.put_directory(
        {make, model, entry_short(0x0112, static_cast<uint16_t>(tags.orientation)), entry_long(0x8769, exif_offset)}));
    return std::move(block.bytes());
}

}  // namespace

Bytes exif_block(const CameraTags& tags) {
    return fill(MetadataBlock::tiff(), tags);
}

Bytes maker_block(const CameraTags& tags) {
    return fill(MetadataBlock::maker(), tags);
}

Bytes with_segments(const Bytes& jpeg, const Bytes& segments) {
    const size_t start = jpeg_start().size();
    return slice(jpeg, 0, start) + segments + slice(jpeg, start, jpeg.size());
}

}  // namespace sample
