// How long a fault lasts that a test brings about.
#pragma once

namespace test_support {

enum class Lasting { kOnce, kFromThenOn };

}  // namespace test_support
