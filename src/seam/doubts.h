// What speaks against two files being the halves of one shot, lens 1 first, beside what is to be seen in them.
#pragma once

#include <string>

// In words, without the files' names; empty where nothing does, and where a file cannot be read.
std::string doubts_about(const char* path1, const char* path2);
