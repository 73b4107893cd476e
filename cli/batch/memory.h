// How much memory jobs may take.
#pragma once

#include <cstdint>
#include <optional>

// Bytes that this process can still take without anything being swapped out or killed, the limit of its control group
// included; nothing where the system does not tell.
std::optional<uint64_t> available_memory();
