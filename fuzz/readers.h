// What the targets of the two container readers have in common.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "check.h"
#include "metadata/exif.h"
#include "metadata/spherical.h"
#include "support/limits.h"

namespace fuzz {

struct Free {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, Free>;

inline int recognise(char* xmp) {
    char* software = nullptr;
    char* date = nullptr;
    const int result = isTALUMO360Viewer(xmp, &software, &date);
    const Text owners[] = {Text(software), Text(date)};
    require((result == -1) == (software == nullptr), "a result tells of the software");
    return result;
}

// As the analysis does with what a reader hands out.
template <typename Reader>
void read_metadata(const std::string& path) {
    try {
        Reader reader(path.c_str(), false);
        uint8_t* block = nullptr;
        char* xmp = nullptr;
        reader.exif_data(&block);
        reader.xml_data(&xmp);
        reader.close_stream();
        const _exif exif(block, block ? reader.exif_length : 0);
        recognise(xmp);
    } catch (const char* text) {
        require(std::strlen(text) > 0, "what is thrown has a text");
    }
}

// The text that a run inserts, now and then longer than fits.
inline std::string text_for(size_t size) {
    return std::string(size * 37 % 21000, 'x');
}

// One run in so many also inserts a text, and of these one in so many on a volume that becomes full.
inline bool inserts(size_t size) {
    return size % 8 == 3;
}
inline bool fills_volume(size_t size) {
    return size % 64 == 11;
}

// Whether `insert` succeeded; what it throws is a text.
template <typename Insert>
bool inserted(const std::string& path, size_t size, Insert insert) {
    try {
        if (fills_volume(size)) {
            const test_support::FileSizeLimit limit(size + size / 64 % 3 * 3000);
            insert(path);
        } else {
            insert(path);
        }
        return true;
    } catch (const char* text) {
        require(std::strlen(text) > 0, "what is thrown has a text");
        return false;
    }
}

// Whether `action` throws a text.
template <typename Action>
bool throws(Action action) {
    try {
        action();
        return false;
    } catch (const char* text) {
        return std::strlen(text) > 0;
    }
}

// What a reader does without a file.
template <typename Reader, typename Write>
void use_without_file(const std::string& path, Write write) {
    require(throws([] { Reader(path_of("missing").c_str(), false); }), "a missing file is not opened");
    require(throws([] { Reader(path_of(".").c_str(), true); }), "a folder is not opened");
    Reader reader(path.c_str(), true);
    reader.close_stream();
    reader.close_stream();
    uint8_t* block = nullptr;
    char* xmp = nullptr;
    throws([&] { reader.exif_data(&block); });
    throws([&] { reader.xml_data(&xmp); });
    require(!block && !xmp, "a closed file hands out nothing");
    require(throws([&] { write(reader); }), "a closed file is not written");
}

}  // namespace fuzz
