#include "api/reply.h"

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "base/text.h"
#include "base/text_owner.h"
#include "media/libavif.h"
#include "metadata/exif.h"

namespace {

const char* or_empty(const char* text) {
    return text ? text : "";
}

std::string escaped(const char* text) {
    std::string copy = or_empty(text);
    replace_string(copy);
    return copy;
}

__attribute__((format(printf, 1, 2))) char* format_reply(const char* format, ...) {
    // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the callers own the text
    auto* reply = static_cast<char*>(std::malloc(kReplySize));
    if (!reply) {
        throw std::bad_alloc();
    }
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(reply, kReplySize, format, arguments);
    va_end(arguments);
    return reply;
}

// Three decimals with a point, whatever the caller's locale.
std::string seconds_text(double seconds) {
    if (!std::isfinite(seconds)) {
        seconds = -1.0;  // JSON has no word for it
    }
    char text[400];  // the largest double has 309 digits before the point
    const auto end = std::to_chars(text, text + sizeof(text), seconds, std::chars_format::fixed, 3).ptr;
    return std::string(text, end);
}

}  // namespace

char* make_json_errstr1(const char* movie_path, const char* errstr, const char* api_errstr, int errnum,
                        int api_errnum) {
    return format_reply(R"({"errnum":"%d","errstr":"%s","api_errnum":%d,"api_errstr":"%s","movie_path":"%s"})", errnum,
                        or_empty(errstr), api_errnum, or_empty(api_errstr), escaped(movie_path).c_str());
}

char* make_json_errstr2(const char* movie_path, const char* audio_path, const char* errstr, const char* api_errstr,
                        int errnum, int api_errnum) {
    return format_reply(R"({"errnum":"%d","errstr":"%s","api_errnum":%d,"api_errstr":"%s","movie_path":"%s",)"
                        R"("audio_path":"%s"})",
                        errnum, or_empty(errstr), api_errnum, or_empty(api_errstr), escaped(movie_path).c_str(),
                        escaped(audio_path).c_str());
}

char* make_json_errstr3(const char* movie_path1, const char* movie_path2, const char* export_path, const char* errstr,
                        const char* api_errstr, int errnum, int api_errnum) {
    return format_reply(R"({"errnum":"%d","errstr":"%s","api_errnum":%d,"api_errstr":"%s","movie_path1":"%s",)"
                        R"("movie_path2":"%s","export_path":"%s"})",
                        errnum, or_empty(errstr), api_errnum, or_empty(api_errstr), escaped(movie_path1).c_str(),
                        escaped(movie_path2).c_str(), escaped(export_path).c_str());
}

char* make_json_result1(const char* movie_path, const char* thumbnail_path, _exif* exif, libavIF* media,
                        const char* youtube360_maker, const char* datetime_fallback, bool isTarget,
                        bool createdThumbnail, const char* type) {
    // "orientaion" is the established name of the key.
    return format_reply(R"({"width":%d,"height":%d,"duration":%s,"frame_count":%lld,"maker":"%s","model":"%s",)"
                        R"("orientaion":%d,"capture_mode":%d,"multi_capture":%lld,"camera_orientation":%d,)"
                        R"("youtube360_maker":"%s","isTarget":%s,"createdThumbnail":%s,"movie_path":"%s",)"
                        R"("thumbnail_path":"%s","datetime":"%s","type":"%s"})",
                        media->width, media->height, seconds_text(media->duration).c_str(),
                        static_cast<long long>(media->frame_count), or_empty(exif->maker), or_empty(exif->model),
                        exif->orientation, exif->capture_mode, static_cast<long long>(exif->multi_capture),
                        exif->camera_orientation, escaped(youtube360_maker).c_str(), isTarget ? "true" : "false",
                        createdThumbnail ? "true" : "false", escaped(movie_path).c_str(),
                        escaped(thumbnail_path).c_str(),
                        escaped(exif->datetime ? exif->datetime : datetime_fallback).c_str(), or_empty(type));
}

char* make_json_result2(const char* movie_path, const char* audio_path, NQ360_STATE state,
                        unsigned long long frame_count) {
    const std::string movie = escaped(movie_path);
    const std::string audio = escaped(audio_path);
    if (state == NQ360_FINISHED) {
        return format_reply(R"({"movie_path":"%s","audio_path":"%s"})", movie.c_str(), audio.c_str());
    }
    return format_reply(R"({"movie_path":"%s","audio_path":"%s","frame_count":%lld})", movie.c_str(), audio.c_str(),
                        static_cast<long long>(frame_count));
}

char* make_json_result3(const char* movie_path1, const char* movie_path2, const char* export_path, NQ360_STATE state,
                        unsigned long long frame_count) {
    const std::string movie1 = escaped(movie_path1);
    const std::string movie2 = escaped(movie_path2);
    const std::string output = escaped(export_path);
    if (state == NQ360_FINISHED) {
        return format_reply(R"({"movie_path1":"%s","movie_path2":"%s","export_path":"%s"})", movie1.c_str(),
                            movie2.c_str(), output.c_str());
    }
    return format_reply(R"({"movie_path1":"%s","movie_path2":"%s","export_path":"%s","frame_count":%lld})",
                        movie1.c_str(), movie2.c_str(), output.c_str(), static_cast<long long>(frame_count));
}

char* with_key(char* reply, const char* key, const std::string& value) {
    const TextPtr owner(reply);
    const std::string text = reply;
    return format_reply(R"(%s,"%s":%s})", text.substr(0, text.size() - 1).c_str(), key, value.c_str());
}
