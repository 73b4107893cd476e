// Paths in JSON, whatever bytes they have.
#pragma once

#include <string>

#include "jobs/replies.h"

// The path itself; where it is not UTF-8, which JSON cannot hold: {"percent": "IMG%FF.jpg"}.
Json path_json(const std::string& path);

// Throws Json::exception where there is none.
std::string path_of(const Json& json);
