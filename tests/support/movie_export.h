// Whole exports of movies, with what most tests of them need.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/codes.h"
#include "support/export_fixture.h"
#include "support/media.h"
#include "support/replies.h"
#include "support/samples.h"
#include "support/watchdog.h"

namespace test_support {

class MovieExport : public ExportFixture {
  protected:
    MovieExport() : ExportFixture("out.mov") {
        call.width = 512;
        call.height = 256;
    }

    // Movies of the camera's smallest size.
    Shot lens_movies(std::vector<std::string> arguments, const std::string& extension = ".mov") {
        arguments.insert(arguments.begin(), {"--size", "1440", "--key-frames", "4"});
        return movies_in(dir, arguments, extension);
    }

    std::string lens_still(int lens) {
        const Shot stills = stills_in(dir, {"--size", "1440", "--code", "77"});
        return lens == 1 ? stills.one : stills.two;
    }

    Outcome run(std::function<void(const Reply&)> on_reply = nullptr) {
        const Watchdog watchdog("the export to " + output);
        return call.run(std::move(on_reply));
    }

    void expect_finished() {
        const Outcome outcome = run();
        ASSERT_EQ(outcome.state(), NQ360_FINISHED) << outcome.text();
    }
};

}  // namespace test_support
