// The two halves that a job reads: whether they go together, and what a panorama of them needs.
#pragma once

#include "api/analyze.h"
#include "media/output_option.h"
#include "nq360.h"

struct Paths {
    const char* movie1;
    const char* movie2;
    const char* output;   // as the replies name it
    const char* written;  // where an export writes it
};

// The reply of a job with two halves, or of a join, that is out of memory.
inline constexpr char kBareExportReply[] =
    R"({"errnum":"39999","errstr":"an unknown error occurred","api_errnum":-1,"api_errstr":"std::bad_alloc",)"
    R"("movie_path1":"","movie_path2":"","export_path":""})";

// Makes the reply of a failure, which the caller frees. Always -1.
int fail(const Paths& paths, const char* errstr, const char* api_errstr, int errnum, int api_errnum,
         const char** json_out);

// Analyses both, and checks that they are of one size and of this camera. 0, or -1 with the reply.
int analyze_inputs(const Paths& paths, AnalyzeResult* input1, AnalyzeResult* input2, const char** json_out);

// Throws a text when lens pictures of a camera's width cannot be stitched; `bandheight`: rows of the loaded band, or 0.
void check_lenses(ImageSize lens, int bandheight);

// How a panorama is to look, by the fields of the record that tell it.
OutputOption look_of(const NQ360_EXPORT_OPTIONS& options);

// Turns the lenses as the pictures lie, loads the band, and leaves the tables to the stitcher, which makes them row by
// row: that spares a job several times the panorama's memory. Throws a text when the panorama cannot be made.
void prepare_projection(const char* band_path, const AnalyzeResult& input1, const AnalyzeResult& input2,
                        OutputOption* option);
