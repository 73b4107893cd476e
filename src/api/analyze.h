// The analysis of one file, for NQ360_analyze_image and for the inputs of an export.
#pragma once

#include <cstdint>

// What analysis learns about one file. The texts are borrowed from the analysis and not to be read after it.
struct AnalyzeResult {
    int32_t width = -1;
    int32_t height = -1;
    double duration = -1.0;  // seconds
    int64_t frame_count = -1;
    const char* maker = nullptr;
    const char* model = nullptr;
    int32_t orientation = -1;  // EXIF code 1..8
    int32_t capture_mode = -1;
    int64_t multi_capture = -1;
    int32_t camera_orientation = -1;
    bool isTarget = false;
    bool is_picture = false;
};

// Analyse a JPEG or a movie, and write the thumbnail when there is a path for it and either the file is a
// target or writeFlag is set. 0 or -1; *json_out receives the reply in both cases, the caller frees it.
int _NQ360_analyze_jpeg(const char* input_path, const char* thumbnail_path, int thumbnail_width, int writeFlag,
                        const char** json_out, AnalyzeResult* result);
int _NQ360_analyze_movie(const char* input_path, const char* thumbnail_path, int thumbnail_width, int writeFlag,
                         const char** json_out, AnalyzeResult* result);

// Analyses an input of an export, without a thumbnail or a reply: 0 or -1, also for another kind of file.
int _NQ360_export_analyze(const char* input_path, AnalyzeResult* result);

// --- Kept for its users; the library itself never calls it ---

// Sets the defaults.
void init_analyze_result(AnalyzeResult* result);
