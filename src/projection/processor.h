// What the processor can do beyond what the library is compiled for.
#pragma once

inline bool has_avx2() {
#if defined(__x86_64__)
    static const bool has = __builtin_cpu_supports("avx2");
    return has;
#else
    return false;
#endif
}
