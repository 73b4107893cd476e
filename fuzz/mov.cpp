// The reader and writer of a movie's atoms.
#include "metadata/mov.h"

#include "readers.h"

namespace {

void insert_text(const std::string& path, const uint8_t* data, size_t size) {
    const std::string text = fuzz::text_for(size);
    const bool done = fuzz::inserted(path, size, [&](const std::string& name) {
        _mov file(name.c_str(), true);
        file.wtire_xml_data(text.c_str());
        file.close_stream();
    });
    const test_support::Bytes after = fuzz::content_of(path);
    if (done) {
        fuzz::require(after.size() == size + text.size() + 24, "the file grows by the atom");
    } else if (!fuzz::fills_volume(size)) {
        fuzz::require(after == fuzz::bytes_of(data, size), "a text that is refused changes nothing");
    }
}

// The steps are public: whoever calls them may have any position.
void walk_from_anywhere(const std::string& path, const uint8_t* data, size_t size) {
    int64_t positions[2];
    if (size < sizeof positions) {
        return;
    }
    std::memcpy(positions, data + size - sizeof positions, sizeof positions);
    _mov file(path.c_str(), true);
    int64_t start = 0;
    int64_t end = 0;
    int number = 0;
    file.read_mov(atom_type("trak"), positions[0], positions[1], &start, &end);
    file.read_tkhd(positions[0], 0, &number);
    file.wtire_atom_size(0, positions[0] % static_cast<int64_t>(size), 24);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::string path = fuzz::path_of("input.mov");
    fuzz::write_input(path, data, size);
    fuzz::read_metadata<_mov>(path);
    if (fuzz::inserts(size)) {
        insert_text(path, data, size);
    } else if (size % 8 == 5) {
        walk_from_anywhere(path, data, size);
    } else if (size % 64 == 6) {
        fuzz::use_without_file<_mov>(path, [](_mov& file) { file.wtire_xml_data("text"); });
    }
    return 0;
}
