// Kinds of files by their names, and the escaping of the replies' texts.
#pragma once

#include <string>

// Copies the part of `path` from its last dot on, the dot included, into `out`, which must hold
// strlen(path) + 1 bytes. A path without a dot, or a null one, has an empty extension.
void get_extension(const char* path, char* out);

// Whether an extension as get_extension writes it (".JPG") is a JPEG's (.jpeg, .jpg) or a movie's (.mov, .mp4).
bool isJpeg(const char* ext);
bool isMovie(const char* ext);

// Escapes backslashes and double quotes in place, as the strings of the replies need it.
void replace_string(std::string& s);

// --- Kept for its users; the library itself never calls it ---

// Lowers `s` in place and returns it.
char* StrToLower(char* s);
