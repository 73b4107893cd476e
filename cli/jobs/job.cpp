#include "jobs/job.h"

#include <filesystem>

#include <unistd.h>

#include "jobs/errors.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"
#include "terminal/progress.h"

namespace fs = std::filesystem;

std::string file_beside(const std::string& output) {
    std::error_code error;
    const fs::path folder = fs::weakly_canonical(fs::absolute(output, error), error).parent_path();
    const std::string beginning = ".nq360-" + std::to_string(getpid()) + "-";
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        if (entry->path().filename().string().compare(0, beginning.size(), beginning) == 0) {
            return entry->path().string();
        }
    }
    return "";
}

void check_input(const std::string& path, const std::string& what) {
    std::error_code unknown;
    const fs::file_status status = fs::status(path, unknown);
    if (fs::is_directory(status)) {
        throw CommandError(printable(path) + ": is a folder; name " + what + " in it");
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        throw CommandError(printable(path) + ": is a pipe or a device; only a file can be read");
    }
}

std::string output_file(const std::string& path, const std::string& input, const std::string& ending) {
    std::error_code unknown;
    return fs::is_directory(path, unknown) ? (fs::path(path) / fs::path(input).stem()).string() + ending : path;
}

void check_output(const std::string& path, bool force, std::initializer_list<std::string> inputs) {
    std::error_code unknown;
    const fs::file_status status = fs::status(path, unknown);
    if (!fs::is_directory(fs::path(path).has_parent_path() ? fs::path(path).parent_path() : ".", unknown)) {
        throw CommandError(printable(path) + ": its folder does not exist");
    }
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        throw CommandError(printable(path) + ": is a pipe or a device; only a file can be written");
    }
    for (const std::string& input : inputs) {
        if (fs::equivalent(path, input, unknown)) {
            throw CommandError(printable(path) + ": is an input itself; choose another name");
        }
    }
    if (fs::exists(status) && !force) {
        throw CommandError(printable(path) + ": exists already; --force replaces it");
    }
}

Outcome run_job(const std::string& output, const JobWords& words, const JobFunction& function, double* seconds) {
    if (interrupted()) {
        return {NQ360_CANCELLED, ""};
    }
    Stoppable stoppable(words.waits_for);
    Progress progress(words.unit);
    const auto handler = [&](NQ360_STATE state, const std::string& reply) {
        if (state == NQ360_STARTED) {
            stoppable.leaves(file_beside(output));
        }
        if (words.as_lines) {
            console().print(json_line(read_reply_with_state(state, reply, words.operation)));
        } else if (state == NQ360_STARTED) {
            progress.begin(last_number(reply, "frame_count"));
        } else {
            progress.advance(last_number(reply, "frame_count"));
        }
        return interrupted();
    };
    Outcome outcome = function(handler);
    *seconds = progress.seconds();
    return outcome;
}
