#include "jobs/job.h"

#include <filesystem>

#include "jobs/errors.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

void check_output(const std::string& path, bool force, std::initializer_list<std::string> inputs) {
    std::error_code unknown;
    const auto status = std::filesystem::status(path, unknown);
    if (std::filesystem::is_directory(status)) {
        throw CommandError(printable(path) + ": is a folder; name the file to write");
    }
    for (const std::string& input : inputs) {
        if (std::filesystem::equivalent(path, input, unknown)) {
            throw CommandError(printable(path) + ": is an input itself; choose another name");
        }
    }
    if (std::filesystem::exists(status) && !force) {
        throw CommandError(printable(path) + ": exists already; --force replaces it");
    }
}

Outcome run_job(const std::string& output, const std::string& unit, const JobFunction& function, double* seconds) {
    if (interrupted()) {
        return {NQ360_CANCELLED, ""};
    }
    CancelMarker marker(output);
    Progress progress(unit);
    const FrameHandler handler = [&](NQ360_STATE state, int64_t frames) {
        if (state == NQ360_STARTED) {
            marker.output_begun();
            progress.begin(frames);
        } else {
            progress.advance(frames);
        }
    };
    Outcome outcome = function(marker.path(), handler);
    *seconds = progress.seconds();
    if (outcome.state == NQ360_FINISHED && interrupted()) {
        std::error_code ignored;
        std::filesystem::remove(output, ignored);
        outcome.state = NQ360_CANCELLED;
    }
    return outcome;
}
