// The export workflow by itself, with an option that the caller has filled. Kept for its users; the library itself
// never calls it.
#pragma once

#include "media/output_option.h"
#include "nq360.h"

// Analyses both inputs, completes the option (its own copy), writes the panorama and its metadata. 0 or -1;
// *json_out receives the reply in both cases, the caller frees it. *cancelled_out is 1 when the marker was seen.
int _NQ360_export(const char* movie_path1, const char* movie_path2, const char* export_path, const char* band_path,
                  const char* cancel_path, OutputOption option, const char** json_out, int* cancelled_out,
                  NQ360_CALLBACK callback);
