// The reader and writer of a JPEG's segments.
#include "metadata/jpeg.h"

#include "readers.h"

namespace {

void insert_text(const std::string& path, const uint8_t* data, size_t size) {
    const std::string text = fuzz::text_for(size);
    const bool done = fuzz::inserted(path, size, [&](const std::string& name) {
        _jpeg file(name.c_str(), true);
        file.wtire_xmp_data(text.c_str());
        file.close_stream();
    });
    const test_support::Bytes after = fuzz::content_of(path);
    if (done) {
        fuzz::require(after.size() == size + text.size() + 35, "the file grows by the segment");
        fuzz::require(std::equal(data + 2, data + size, after.end() - static_cast<ptrdiff_t>(size - 2)),
                      "what the file held follows the segment");
        char* found = nullptr;
        _jpeg file(path.c_str(), false);
        fuzz::require(file.xml_data(&found) == 0 && std::strncmp(found, text.c_str(), text.size()) == 0,
                      "the text that was inserted is found");
    } else if (!fuzz::fills_volume(size)) {
        fuzz::require(after == fuzz::bytes_of(data, size), "a text that is refused changes nothing");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = fuzz::path_of("input.jpg");
    fuzz::write_input(path, data, size);
    fuzz::read_metadata<_jpeg>(path);
    if (fuzz::inserts(size)) {
        insert_text(path, data, size);
    } else if (size % 64 == 5) {
        fuzz::use_without_file<_jpeg>(path, [](_jpeg& file) { file.wtire_xmp_data("text"); });
        _jpeg file(path.c_str(), false);
        int32_t position = 0;
        std::memcpy(&position, data, sizeof position);
        file.get_app1_header(position);
    }
    return 0;
}
