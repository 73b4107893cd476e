// Whole exports of movies, with what most tests of them need.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/codes.h"
#include "support/media.h"
#include "support/replies.h"
#include "support/samples.h"
#include "support/watchdog.h"

namespace test_support {

using Codes = std::vector<CodePair>;

// Frames `first` to `last` of both movies.
inline Codes equal_codes(int first, int last) {
    Codes codes;
    for (int frame = first; frame <= last; ++frame) {
        codes.emplace_back(frame, frame);
    }
    return codes;
}

constexpr double kFrameSeconds = 1001.0 / 30000;

inline float time_of(int frame) {
    return static_cast<float>(frame * kFrameSeconds);
}

class MovieExport : public testing::Test {
  protected:
    // Movies of the camera's smallest size.
    Shot lens_movies(std::vector<std::string> arguments, const std::string& extension = ".mov") {
        arguments.insert(arguments.begin(), {"--size", "1440", "--key-frames", "4"});
        return movies_in(dir, arguments, extension);
    }

    std::string lens_still(int lens) {
        const Shot stills = stills_in(dir, {"--size", "1440", "--code", "77"});
        return lens == 1 ? stills.one : stills.two;
    }

    void use(const Shot& inputs) {
        shot = inputs;
        call.movie1 = shot.one.c_str();
        call.movie2 = shot.two.c_str();
        call.output = output.c_str();
        call.width = 512;
        call.height = 256;
    }

    void use_output(const std::string& name) {
        output = dir.file(name);
        call.output = output.c_str();
    }

    Outcome run(std::function<void(const Reply&)> on_reply = nullptr) {
        const Watchdog watchdog("the export to " + output);
        return call.run(std::move(on_reply));
    }

    void expect_finished() {
        const Outcome outcome = run();
        ASSERT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
    }

    TempDir dir;
    Shot shot;
    std::string output = dir.file("out.mov");
    ExportCall call;
};

}  // namespace test_support
