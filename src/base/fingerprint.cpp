#include "base/fingerprint.h"

#include <cstdio>
#include <fstream>
#include <vector>

#include "base/files.h"

void Fingerprint::add(const void* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        hash_ = (hash_ ^ static_cast<const uint8_t*>(bytes)[i]) * 0x100000001b3;
    }
}

std::string Fingerprint::text() const {
    char text[17];
    std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(hash_));
    return text;
}

std::string fingerprint_of_file(const char* path) {
    if (!isRegularFile(path)) {  // a pipe or a device may never end
        return "";
    }
    constexpr size_t kBlock = 1 << 16;
    std::ifstream file(path, std::ios::binary);
    Fingerprint fingerprint;
    std::vector<char> block(kBlock);
    while (file) {
        file.read(block.data(), kBlock);
        fingerprint.add(block.data(), static_cast<size_t>(file.gcount()));
    }
    return file.eof() ? fingerprint.text() : "";
}
