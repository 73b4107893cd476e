// What an error reply means to the person who has to act.
#pragma once

#include <string>

#include "jobs/library.h"
#include "jobs/replies.h"

// Bytes that the library asks for on a volume beyond the inputs' sizes.
constexpr unsigned long long kHeadroom = 50ULL << 20;

// "NAME: what is wrong; what to do", printable. `thumbnail` is where one was to go, or empty.
std::string analysis_failure(const Json& error, const std::string& path, const std::string& thumbnail);
std::string no_picture(const std::string& path);  // an analysis that ended well and found none
std::string sound_failure(const Json& error, const std::string& movie, const std::string& output);
std::string export_failure(const Json& error, const ExportJob& job);
std::string join_failure(const Json& error, const JoinJob& job);

// What an export that ended well could not read of its inputs, or empty.
std::string missing_parts(const Json& result, const ExportJob& job);
