// The JSON texts of the replies.
//
// Each builder returns a zero-terminated text in a buffer of kReplySize bytes from malloc, which the caller
// frees; a longer text is cut. Paths, the software name and the date-time are escaped. errstr, api_errstr and
// the camera's maker and model go in as they are (deliberately: these texts are fixed or the camera's own).
// A null text prints as an empty string.
#pragma once

#include <string>

#include "nq360.h"

class _exif;
class libavIF;

constexpr int kReplySize = 10240;

// {"errnum":"..","errstr":..} about one file; `errnum` prints as a string, `api_errnum` as a number.
char* make_json_errstr1(const char* movie_path, const char* errstr, const char* api_errstr, int errnum, int api_errnum);
char* make_json_errstr2(const char* movie_path, const char* audio_path, const char* errstr, const char* api_errstr,
                        int errnum, int api_errnum);
char* make_json_errstr3(const char* movie_path1, const char* movie_path2, const char* export_path, const char* errstr,
                        const char* api_errstr, int errnum, int api_errnum);

// What analysis found. `datetime_fallback` stands in when the camera's block has no date-time.
char* make_json_result1(const char* movie_path, const char* thumbnail_path, _exif* exif, libavIF* media,
                        const char* youtube360_maker, const char* datetime_fallback, bool isTarget,
                        bool createdThumbnail, const char* type);

// What a job wrote; `frame_count` is printed for every state but NQ360_FINISHED.
char* make_json_result2(const char* movie_path, const char* audio_path, NQ360_STATE state,
                        unsigned long long frame_count);
char* make_json_result3(const char* movie_path1, const char* movie_path2, const char* export_path, NQ360_STATE state,
                        unsigned long long frame_count);

// The reply with a further key at its end, `value` being JSON. Frees `reply`.
char* with_key(char* reply, const char* key, const std::string& value);
