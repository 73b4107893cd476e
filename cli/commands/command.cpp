#include "commands/command.h"

Command::Command(CLI::App& app, const std::string& name, const std::string& description)
    : parser_(app.add_subcommand(name, description)) {}

int Command::begin_and_run() {
    console().begin(verbose_ ? Loudness::kVerbose : quiet_ ? Loudness::kQuiet : Loudness::kNormal);
    return run();
}

void Command::add_loudness() {
    CLI::Option* quiet = parser_->add_flag("-q,--quiet", quiet_, "say nothing but errors");
    parser_->add_flag("-v,--verbose", verbose_, "show what the library logs")->excludes(quiet);
}
