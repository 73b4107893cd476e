#include "terminal/help_format.h"

#include <sstream>

namespace {

constexpr size_t kColumns = 80;
constexpr size_t kIndent = 2;

// The words of a text between two columns.
std::string wrapped(const std::string& text, size_t left) {
    std::istringstream words(text);
    std::string result;
    size_t column = left;
    for (std::string word; words >> word;) {
        if (column > left && column + 1 + word.size() > kColumns) {
            result += "\n" + std::string(left, ' ');
            column = left;
        } else if (column > left) {
            result += " ";
            ++column;
        }
        result += word;
        column += word.size();
    }
    return result + "\n";
}

// A term and what it means, beside it where it is short enough.
std::string entry(const std::string& term, const std::string& meaning, size_t left) {
    const std::string begin = std::string(kIndent, ' ') + term;
    const std::string gap =
        begin.size() + 2 <= left ? std::string(left - begin.size(), ' ') : "\n" + std::string(left, ' ');
    return begin + gap + wrapped(meaning, left);
}

std::string option_term(const CLI::Option* option) {
    const std::string short_name = option->get_snames().empty() ? "    " : "-" + option->get_snames().front() + ", ";
    const std::string& metavar = option->get_option_text();
    return short_name + "--" + option->get_lnames().front() + (metavar.empty() ? "" : " " + metavar);
}

std::string positional_names(const CLI::App* app) {
    std::string names;
    for (const CLI::Option* option : app->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
        names += " " + (option->get_option_text().empty() ? option->get_name(true) : option->get_option_text());
    }
    return names;
}

std::string arguments_section(const CLI::App* app) {
    constexpr size_t kLeft = 12;
    std::string text;
    for (const CLI::Option* option : app->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
        text += entry(option->get_name(true), option->get_description(), kLeft);
    }
    return text.empty() ? "" : "\nArguments:\n" + text;
}

std::string options_section(const CLI::App* app) {
    constexpr size_t kLeft = 26;
    std::string text;
    for (const CLI::Option* option : app->get_options([](const CLI::Option* o) {
             return o->nonpositional() && !o->get_group().empty();  // which those have that people do not type
         })) {
        text += entry(option_term(option), option->get_description(), kLeft);
    }
    return "\nOptions:\n" + text;
}

std::string commands_section(const CLI::App* app) {
    constexpr size_t kLeft = 12;
    std::string text;
    for (const CLI::App* command : app->get_subcommands([](const CLI::App*) { return true; })) {
        const std::string description = command->get_description();
        text += entry(command->get_name(), description.substr(0, description.find('.')), kLeft);
    }
    return text.empty() ? "" : "\nCommands:\n" + text;
}

// "nq360 export", whatever path the command was started by.
std::string full_name(const CLI::App* app) {
    return app->get_parent() ? full_name(app->get_parent()) + " " + app->get_name() : app->get_name();
}

}  // namespace

std::string HelpFormat::make_help(const CLI::App* app, std::string /*name*/, CLI::AppFormatMode /*mode*/) const {
    const std::string commands = commands_section(app);
    std::string text = "Usage: " + full_name(app) + (commands.empty() ? " [OPTION]..." : " COMMAND [ARGUMENT]...") +
                       positional_names(app) + "\n" + wrapped(app->get_description(), 0);
    text += arguments_section(app) + commands + options_section(app);
    if (!app->get_footer().empty()) {
        text += "\n" + app->get_footer() + "\n";
    }
    return text;
}
