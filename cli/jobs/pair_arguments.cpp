#include "jobs/pair_arguments.h"

#include "jobs/arguments.h"
#include "jobs/errors.h"
#include "jobs/job.h"
#include "jobs/option.h"
#include "terminal/progress.h"

namespace {

constexpr double kWholeMovie = 1e9;  // seconds; the library holds an end to the movie's own

}  // namespace

std::optional<double> PairArguments::end(int which) const {
    if (which == 0 || ends[1] || !ends[0]) {
        return ends[which];
    }
    return start(1) + *ends[0] - start(0);
}

void add_lenses(CLI::App& app, PairArguments& pair) {
    app.add_option("LENS1", pair.lens[0], "picture or movie of lens 1")->required();
    app.add_option("LENS2", pair.lens[1], "picture or movie of lens 2, of the same shot")->required();
}

void add_turns(CLI::App& app, PairArguments& pair) {
    add_parsed(app, "--turn1", pair.turns[0], parse_degrees, "DEGREES", "turn lens picture 1 about its centre");
    add_parsed(app, "--turn2", pair.turns[1], parse_degrees, "DEGREES", "turn lens picture 2 about its centre");
}

void add_range(CLI::App& app, PairArguments& pair) {
    add_parsed(app, "--start", pair.starts[0], parse_seconds, "TIME",
               "where to begin in the movies, as seconds or h:m:s (0)");
    add_parsed(app, "--start2", pair.starts[1], parse_seconds, "TIME",
               "the same for lens 2, where the movies did not begin together");
    add_parsed(app, "--end", pair.ends[0], parse_seconds, "TIME", "where to end (the end of the movies)");
    add_parsed(app, "--end2", pair.ends[1], parse_seconds, "TIME", "the same for lens 2");
}

void check_lenses(const PairArguments& pair) {
    for (int i = 0; i < 2; ++i) {
        check_input(pair.lens[i], "the picture or movie of lens " + std::to_string(i + 1));
    }
}

void check_range(const PairArguments& pair) {
    for (int i = 0; i < 2; ++i) {
        if (pair.end(i) && *pair.end(i) <= pair.start(i)) {
            throw UsageError("the end of the range, " + clock_text(*pair.end(i)) + ", does not lie behind its start");
        }
    }
}

void fill(const PairArguments& pair, ExportJob* job) {
    job->lens[0] = pair.lens[0];
    job->lens[1] = pair.lens[1];
    job->options.turn1 = pair.turns[0];
    job->options.turn2 = pair.turns[1];
    job->options.start1 = pair.start(0);
    job->options.start2 = pair.start(1);
    job->options.end1 = pair.end(0).value_or(kWholeMovie);
    job->options.end2 = pair.end(1).value_or(kWholeMovie);
}
