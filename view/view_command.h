#pragma once

#include "commands/command.h"

std::unique_ptr<Command> make_view(CLI::App& app);
