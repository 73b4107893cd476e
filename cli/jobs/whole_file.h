// Files that are there whole or not at all.
#pragma once

#include <string>

// Writes the file beside its name and renames it: what stood there stays until then. Throws CommandError that names it.
void write_whole(const std::string& path, const std::string& bytes);
