// Whether a movie has sound.
#pragma once

#include <string>

bool has_sound(const std::string& movie);
