// Numbers as EXIF of the camera and movies have them, the highest byte first.
#pragma once

#include <cstdint>
#include <string>

// The lowest `size` bytes of a number.
std::string to_big_endian(uint64_t value, size_t size);
// The number in so many bytes, which must be there.
uint64_t from_big_endian(const std::string& bytes, size_t at, size_t size);
