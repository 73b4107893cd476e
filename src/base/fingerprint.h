// A short text by which contents are known again. It tells whether somebody mixed up files, not whether somebody meant
// to deceive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class Fingerprint {
  public:
    void add(const void* bytes, size_t count);
    void add(int64_t number) { add(&number, sizeof(number)); }

    std::string text() const;  // 16 hexadecimal digits

  private:
    uint64_t hash_ = 0xcbf29ce484222325;  // FNV-1a
};

// Of all bytes of a file; empty when it cannot be read or is no regular one.
std::string fingerprint_of_file(const char* path);
