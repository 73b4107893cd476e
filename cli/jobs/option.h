// Options of a command line whose arguments are kept as values.
#pragma once

#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

// An option whose argument a parser reads; `metavar` is its name in the help.
template <typename T>
CLI::Option* add_parsed(CLI::App& app, const std::string& name, T& target, T (*parse)(const std::string&),
                        const std::string& metavar, const std::string& description) {
    const auto read = [name, &target, parse](const std::string& text) {
        try {
            target = parse(text);
        } catch (const std::invalid_argument& wrong) {
            throw CLI::ValidationError(name, wrong.what());
        }
    };
    return app.add_option_function<std::string>(name, read, description)->option_text(metavar);
}

// An option that is a plain text.
template <typename T>
CLI::Option* add_text(CLI::App& app, const std::string& name, T& target, const std::string& metavar,
                      const std::string& description) {
    return app
        .add_option_function<std::string>(
            name, [&target](const std::string& text) { target = text; }, description)
        ->option_text(metavar);
}
