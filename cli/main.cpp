// nq360: the library from a shell, with arguments, messages and progress.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>
#include <sstream>
#include <vector>

#include "commands/command.h"
#include "jobs/errors.h"
#include "terminal/help_format.h"
#include "terminal/interrupt.h"
#include "terminal/wrong_use.h"
#include "view_command.h"

namespace {

using Commands = std::vector<std::unique_ptr<Command>>;

constexpr const char* kDescription =
    "Describes the pictures and movies of a dual-lens 360-degree camera and stitches the two halves of a shot into one "
    "equirectangular panorama.";
constexpr const char* kFooter =
    "'nq360 COMMAND --help' explains a command. Exit status: 0 done, 1 failed,\n2 wrong use, 130 cancelled.";

// Whether a batch goes to Slurm: then what follows "--" is not ours.
bool hands_over(int argc, char** argv) {
    return std::any_of(argv, argv + argc, [](const char* argument) { return std::string(argument) == "--slurm"; });
}

// As the parser takes them, last one first. It would take a name in brackets for a list of names where several are
// allowed, and loses its way when "--" comes after a first name. What is not an option is a path here, so that
// both can be written as it understands them.
std::vector<std::string> arguments_of(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    const bool takes_many = command == "analyze" || command == "batch" || command == "join";
    std::vector<std::string> arguments;
    bool names_only = false;
    bool for_sbatch = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (for_sbatch) {
            arguments.push_back("--sbatch=" + argument);
            continue;
        }
        if (command == "batch" && argument == "--" && hands_over(argc, argv)) {
            for_sbatch = true;
            continue;
        }
        const bool is_list = takes_many && !argument.empty() && argument.front() == '[' && argument.back() == ']';
        const bool is_dashed = names_only && !argument.empty() && argument.front() == '-';
        if (!names_only && argument == "--") {
            names_only = true;
        } else {
            arguments.push_back(is_list || is_dashed ? "./" + argument : argument);
        }
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

// Help and version go to the standard output stream, what is wrong with the arguments to the other one.
int end_parsing(const CLI::App& app, const CLI::ParseError& error) {
    if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
        std::ostringstream text;
        app.exit(error, text);
        console().print(text.str());
        return kDone;
    }
    std::string command = "nq360";
    for (const CLI::App* chosen : app.get_subcommands()) {
        command += " " + chosen->get_name();
    }
    console().complain(wrong_use(app, error));
    console().tell("Try '" + command + " --help'.");
    return kWrongUse;
}

int run_chosen(const Commands& commands) {
    for (const auto& command : commands) {
        if (command->chosen()) {
            return command->begin_and_run();
        }
    }
    return kWrongUse;
}

// As if this signal had never been ignored: the shell sees what it sees of every program in a pipe.
int end_by_closed_pipe() {
    std::signal(SIGPIPE, SIG_DFL);
    std::raise(SIGPIPE);
    return kFailed;
}

int parse_and_run(int argc, char** argv) {
    CLI::App app(kDescription, "nq360");
    app.formatter(std::make_shared<HelpFormat>());
    app.require_subcommand(1);
    app.footer(kFooter);
    app.set_help_flag("-h,--help", "show this help and exit");
    app.set_version_flag("--version", "nq360 " NQ360_VERSION, "show the version and exit");
    app.option_defaults()->disable_flag_override();
    Commands commands;
    commands.push_back(make_analyze(app));
    commands.push_back(make_export(app));
    commands.push_back(make_batch(app));
    commands.push_back(make_join(app));
    commands.push_back(make_match(app));
    commands.push_back(make_audio(app));
    commands.push_back(make_space(app));
    commands.push_back(make_view(app));
    try {
        app.parse(arguments_of(argc, argv));
    } catch (const CLI::ParseError& error) {
        return end_parsing(app, error);
    }
    return run_chosen(commands);
}

int run(int argc, char** argv) {
    try {
        return parse_and_run(argc, argv);
    } catch (const ClosedPipe&) {
        return end_by_closed_pipe();
    } catch (const UsageError& error) {
        console().complain(error.what());
        return kWrongUse;
    } catch (const std::exception& error) {
        console().complain(error.what());
        return kFailed;
    }
}

}  // namespace

int main(int argc, char** argv) {
    // Ignored, so that a reader that goes away cannot end a job between two writes.
    std::signal(SIGPIPE, SIG_IGN);
    watch_interrupts();
    try {
        return run(argc, argv);
    } catch (...) {
        std::fputs("nq360: cannot start; is there enough memory?\n", stderr);
        return kFailed;
    }
}
