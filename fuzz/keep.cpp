// A file as lens 1, of which metadata is kept, and as the panorama that they are written into.
#include "metadata/keep.h"

#include "readers.h"

namespace {

// What is refused leaves the file as it was; what is written only makes it larger.
template <typename Write>
void write_into(const std::string& path, Write write) {
    const test_support::Bytes before = fuzz::content_of(path);
    const bool refused = fuzz::throws([&] { write(path.c_str()); });
    const test_support::Bytes after = fuzz::content_of(path);
    if (refused) {
        fuzz::require(after == before, "what is refused changes nothing");
    } else {
        fuzz::require(after.size() >= before.size(), "no byte of the file is lost");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = fuzz::path_of("input.any");
    fuzz::write_input(path, data, size);
    const KeptMetadata kept = read_kept_metadata(path.c_str());
    const std::string date(reinterpret_cast<const char*>(data), size % 32 < size ? size % 32 : 0);
    if (size >= 2 && data[0] == 0xFF && data[1] == 0xD8) {
        write_into(path, [&](const char* name) { write_picture_metadata(name, 64, 32, kept, date.c_str()); });
    } else {
        write_into(path,
                   [&](const char* name) { write_movie_metadata(name, 64, 32, movie_texts(kept, date.c_str())); });
        write_into(path, [](const char* name) { move_index_to_front(name); });
    }
    return 0;
}
