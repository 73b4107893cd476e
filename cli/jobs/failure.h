// What an error reply means to the person who has to act.
#pragma once

#include <string>

#include "jobs/library.h"
#include "jobs/replies.h"

// "NAME: what is wrong; what to do", printable. `thumbnail` is where one was to go, or empty.
std::string analysis_failure(const Json& error, const std::string& path, const std::string& thumbnail);
std::string sound_failure(const Json& error, const std::string& movie, const std::string& output);
std::string export_failure(const Json& error, const ExportJob& job);
