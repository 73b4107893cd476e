// The extraction of a movie's sound.
#include <string>

#include "api/reply.h"
#include "api/unexpected.h"
#include "base/files.h"
#include "base/log.h"
#include "base/thrown_text.h"
#include "media/libavif.h"
#include "nq360.h"

namespace {

// The reply of a call that is out of memory.
constexpr char kBareReply[] =
    R"({"errnum":"29999","errstr":"an unknown error occurred","api_errnum":-1,"api_errstr":"std::bad_alloc",)"
    R"("movie_path":"","audio_path":""})";

int fail(const char* movie_path, const char* audio_path, const char* errstr, const char* api_errstr, int errnum,
         int api_errnum, const char** reply) {
    *reply = make_json_errstr2(movie_path, audio_path, errstr, on_one_line(api_errstr).c_str(), errnum, api_errnum);
    return -1;
}

// Opens the movie and writes its sound; 0 or -1 with the reply, *cancelled set when the marker was seen.
int extract(const char* movie_path, const char* audio_path, int bit_rate, const char* cancel_path,
            NQ360_CALLBACK callback, const char** reply, bool* cancelled) {
    libavIF media(movie_path);
    if (media.open_input_file(0) != 0) {
        return fail(movie_path, audio_path, "Cold Not Open File", media.error_text, 20001, media.error_code, reply);
    }
    if (!media.hasAudio(0)) {
        return fail(movie_path, audio_path, "Movie Has No Audio Stream!!", media.error_text, 20001, media.error_code,
                    reply);
    }
    if (!audio_path) {
        return fail(movie_path, audio_path, "Audio Path is NULL!!", media.error_text, 20001, -1, reply);
    }
    ReportProgress report;
    if (callback) {
        report = [&](NQ360_STATE state, int64_t packets) {
            send_reply(callback, state,
                       make_json_result2(movie_path, audio_path, state, static_cast<unsigned long long>(packets)));
            return false;
        };
    }
    if (media.write_audio(audio_path, cancel_path, bit_rate, report) != 0) {
        *cancelled = media.cancelled;
        return media.cancelled ? fail(movie_path, audio_path, "Canceled", media.error_text, 29999, -1, reply)
                               : fail(movie_path, audio_path, "Colud Not Write Audio!!", media.error_text, 29999,
                                      media.error_code, reply);
    }
    *reply = make_json_result2(movie_path, audio_path, NQ360_FINISHED, ~0ULL);
    return 0;
}

// The same with the established end of an unexpected failure: it counts as a success, keeps the file, and its
// reply, sent with NQ360_FINISHED, holds "errnum". Callers tell it by that; deliberate.
int extract_guarded(const char* movie_path, const char* audio_path, int bit_rate, const char* cancel_path,
                    NQ360_CALLBACK callback, const char** reply, bool* cancelled) {
    nq360_log(1, "[_NQT360_get_audio]");
    int outcome = 0;
    try {
        outcome = extract(movie_path, audio_path, bit_rate, cancel_path, callback, reply, cancelled);
    } catch (...) {
        fail(movie_path, audio_path, "an unknown error occurred", thrown_text().c_str(), 29999, -1, reply);
    }
    if (outcome == 0) {
        nq360_log(1, "[_NQT360_get_audio] ok");
    }
    return outcome;
}

}  // namespace

// The tags of the log lines are spelled with an extra letter on purpose.
int NQ360_get_audio(const char* movie_path, const char* audio_path, int bit_rate, const char* cancel_path,
                    NQ360_CALLBACK callback) {
    nq360_log(1, "[NQT360_get_audio]");
    const auto refuse = [&](int errnum, const char* errstr) {
        const char* reply = nullptr;
        nq360_log(1, "[NQT360_get_audio] state = %d", fail(movie_path, audio_path, errstr, "", errnum, -1, &reply));
        send_reply(callback, NQ360_FAILED, reply);
        return 0;
    };
    bool output_is_ours = false;  // only then may a failure remove it
    try {
        if (!fileExists(movie_path)) {
            return refuse(20000, "Input file not exiists");
        }
        if (audio_path) {
            if (!isWritable(audio_path) || isSameFile(audio_path, movie_path) || isSameFile(audio_path, cancel_path)) {
                return refuse(20003, "audio not writable");
            }
            if (check_freesize(nullptr, nullptr, audio_path) != 0) {
                return refuse(20004, "disk is full");
            }
            output_is_ours = true;
        }
        const char* reply = nullptr;
        bool cancelled = false;
        const int outcome =
            extract_guarded(movie_path, audio_path, bit_rate, cancel_path, callback, &reply, &cancelled);
        nq360_log(1, "[NQT360_get_audio] state = %d", outcome);
        if (outcome != 0) {
            remove_file(audio_path);
        }
        const NQ360_STATE failure = cancelled ? NQ360_CANCELLED : NQ360_FAILED;
        send_reply(callback, outcome == 0 ? NQ360_FINISHED : failure, reply);
        return 0;
    } catch (...) {
        if (output_is_ours) {
            remove_file(audio_path);
        }
        return answer_unexpected(callback, kBareReply, [&](const char* text) {
            return make_json_errstr2(movie_path, audio_path, "an unknown error occurred", text, 29999, -1);
        });
    }
}
