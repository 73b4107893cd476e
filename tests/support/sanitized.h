// Whether the tests are built with sanitizers: these are slow and bring an allocator of their own.
#pragma once

namespace test_support {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

}  // namespace test_support
