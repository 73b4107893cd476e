// The examples of the same build tree, and pairs for them to stitch.
#pragma once

#include <filesystem>
#include <string>

#include "support/run_sample.h"
#include "support/temp_dir.h"

namespace test_support {

// Test programs lie in tests/, the examples in tests/examples/.
inline std::string example(const std::string& name) {
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / "examples" / name).string();
}

}  // namespace test_support
