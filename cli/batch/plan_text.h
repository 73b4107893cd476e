// A plan as people and programs read it.
#pragma once

#include <string>
#include <vector>

#include "batch/assessment.h"
#include "batch/plan.h"

// A table, then what is left out and why.
std::string plan_table(const Plan& plan, const std::vector<OutputState>& states);

// One JSON object a line: the shots, then what is left out.
std::string plan_lines(const Plan& plan, const std::vector<OutputState>& states);
