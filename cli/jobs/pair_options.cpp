#include "jobs/pair_options.h"

#include "jobs/arguments.h"

void add_lenses(CLI::App& app, PairOptions& options) {
    app.add_option("LENS1", options.lens[0], "picture or movie of lens 1")->required();
    app.add_option("LENS2", options.lens[1], "picture or movie of lens 2, of the same shot")->required();
}

void add_turns(CLI::App& app, PairOptions& options) {
    add_parsed(app, "--turn1", options.turns[0], parse_degrees, "DEGREES", "turn lens picture 1 about its centre");
    add_parsed(app, "--turn2", options.turns[1], parse_degrees, "DEGREES", "turn lens picture 2 about its centre");
}

void add_starts(CLI::App& app, PairOptions& options) {
    add_parsed(app, "--start", options.starts[0], parse_seconds, "TIME",
               "where to begin in the movies, as seconds or h:m:s (0)");
    add_parsed(app, "--start2", options.starts[1], parse_seconds, "TIME",
               "the same for lens 2, where the movies did not begin together");
}
