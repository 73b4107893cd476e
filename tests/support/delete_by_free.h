// The counterpart of operators new that a test puts in the place of the system's: they allocate with malloc.
#pragma once

#include <cstddef>
#include <cstdlib>

[[gnu::weak]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::weak]] void operator delete[](void* memory) noexcept {
    std::free(memory);
}
[[gnu::weak]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
[[gnu::weak]] void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}
