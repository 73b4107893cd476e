// The records of the interface with options: their defaults, and what is wrong with one.
#pragma once

#include <string>

#include "nq360.h"

// Each: empty when every value is in its range; else a text that begins with the field's name. Paths are not looked at:
// the job tells of those.
std::string fault_of(const NQ360_EXPORT_OPTIONS& options);
std::string fault_of(const NQ360_ANALYZE_OPTIONS& options);
std::string fault_of(const NQ360_AUDIO_OPTIONS& options);
std::string fault_of(const NQ360_JOIN_OPTIONS& options);

// The words of a fault that has to do with how the picture is to look alone, for jobs that write no file.
std::string fault_of_look(const NQ360_EXPORT_OPTIONS& options);
