// Runs a fuzz target once on each file of the folders given, where there is no fuzzing engine: what was found stays
// found in every build.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "check.h"

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

void run(const std::string& path) {
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    const test_support::Bytes bytes = test_support::read_file(path);
    // Exactly as large as the input, so that the sanitizer sees a read beyond it.
    const auto copy = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    LLVMFuzzerTestOneInput(copy.get(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    LLVMFuzzerInitialize(&argc, &argv);
    size_t runs = 0;
    for (int i = 1; i < argc; ++i) {
        std::vector<std::string> paths;
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            paths.push_back(entry.path().string());
        }
        std::sort(paths.begin(), paths.end());
        for (const std::string& path : paths) {
            run(path);
        }
        runs += paths.size();
    }
    return runs > 0 ? 0 : 1;
}
