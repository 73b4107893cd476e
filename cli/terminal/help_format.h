// The help text in the layout of the GNU programs, which help2man reads.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

class HelpFormat : public CLI::Formatter {
  public:
    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
};
