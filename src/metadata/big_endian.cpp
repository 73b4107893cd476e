#include "metadata/big_endian.h"

std::string to_big_endian(uint64_t value, size_t size) {
    std::string bytes(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        bytes[size - 1 - i] = static_cast<char>(value >> 8 * i);
    }
    return bytes;
}

uint64_t from_big_endian(const std::string& bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    }
    return value;
}
