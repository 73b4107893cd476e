// What tests of exports have in common: two inputs, an output in a folder of their own, and the call.
#pragma once

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/replies.h"
#include "support/samples.h"
#include "support/temp_dir.h"

namespace test_support {

class ExportFixture : public testing::Test {
  protected:
    explicit ExportFixture(const std::string& output_name) { use_output(output_name); }

    void use(const Shot& inputs) {
        shot = inputs;
        call.movie1 = shot.one.c_str();
        call.movie2 = shot.two.c_str();
    }

    // A name in the folder, or a whole path.
    void use_output(const std::string& path) {
        output = (std::filesystem::path(dir.path()) / path).string();
        call.output = output.c_str();
    }

    TempDir dir;
    Shot shot;
    std::string output;
    ExportCall call;
};

}  // namespace test_support
