// A subcommand: its constructor adds its arguments to the parser; run does the work and returns the exit
// status, or throws CommandError or UsageError.
#pragma once

#include <memory>

#include <CLI/CLI.hpp>

#include "terminal/console.h"

class Command {
  public:
    Command(CLI::App& app, const std::string& name, const std::string& description);
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    bool chosen() const { return parser_->parsed(); }

    // Begins the console as --quiet and --verbose say, and runs.
    int begin_and_run();

  protected:
    CLI::App& parser() { return *parser_; }
    void add_loudness();

  private:
    virtual int run() = 0;

    CLI::App* parser_;
    bool quiet_ = false;
    bool verbose_ = false;
};

std::unique_ptr<Command> make_analyze(CLI::App& app);
std::unique_ptr<Command> make_export(CLI::App& app);
std::unique_ptr<Command> make_batch(CLI::App& app);
std::unique_ptr<Command> make_join(CLI::App& app);
std::unique_ptr<Command> make_match(CLI::App& app);
std::unique_ptr<Command> make_audio(CLI::App& app);
std::unique_ptr<Command> make_space(CLI::App& app);
