#include "terminal/wrong_use.h"

#include <algorithm>
#include <vector>

#include "terminal/console.h"

namespace {

bool is_dashed(const std::string& word) {
    return word.size() > 1 && word[0] == '-';
}

// The parser names the option first and then counts what it got.
std::string wrong_count(const CLI::App& command, const std::string& said) {
    std::string name = said.substr(0, said.find_first_of(": "));
    name.insert(0, name[0] == '-' ? "" : "--");
    const CLI::Option* option = command.get_option_no_throw(name);
    if (!option) {
        return said;
    }
    if (option->get_items_expected_max() == 0) {
        return name + " takes no value";
    }
    return option->count() > 1 ? name + " is given twice" : name + " needs a value, " + option->get_option_text();
}

}  // namespace

std::string wrong_use(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    const CLI::App& command = chosen.empty() ? app : *chosen.back();
    const std::vector<std::string> extras = command.remaining();
    const auto unknown = std::find_if(extras.begin(), extras.end(), is_dashed);
    if (unknown != extras.end()) {
        return "there is no option '" + printable(*unknown) + "'";
    }
    if (chosen.empty()) {
        return extras.empty() ? "a command is missing" : "there is no command '" + printable(extras.front()) + "'";
    }
    if (dynamic_cast<const CLI::ExtrasError*>(&error)) {
        return "'" + printable(extras.front()) + "' is one name too many";
    }
    return printable(dynamic_cast<const CLI::ArgumentMismatch*>(&error) ? wrong_count(command, error.what())
                                                                        : std::string(error.what()));
}
