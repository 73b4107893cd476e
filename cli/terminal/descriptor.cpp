#include "terminal/descriptor.h"

#include <utility>

#include <unistd.h>

Descriptor::~Descriptor() {
    if (number_ >= 0) {
        close(number_);
    }
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

int Descriptor::release() {
    return std::exchange(number_, -1);
}
