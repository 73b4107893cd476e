// What is wrong with the arguments, in words for whoever typed them.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

std::string wrong_use(const CLI::App& app, const CLI::ParseError& error);
