// Files that are there whole or not at all.
#pragma once

#include <string>

// A path in the folder for what is renamed once it is whole: no other thread or process uses it.
std::string path_beside(const std::string& folder, const std::string& extension);

// Writes the file beside its name and renames it: what stood there stays until then. Throws CommandError that names it.
void write_whole(const std::string& path, const std::string& bytes);
