// The extraction of a movie's sound.
#include <string>

#include "api/client.h"
#include "api/options.h"
#include "api/reply.h"
#include "api/unexpected.h"
#include "base/files.h"
#include "base/log.h"
#include "base/output_place.h"
#include "base/text_owner.h"
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

// Opens the movie and writes its sound to `written`; 0 or -1 with the reply, *cancelled set when the caller stopped it.
int extract(const NQ360_AUDIO_OPTIONS& options, const char* written, const Client& client, const char** reply,
            bool* cancelled) {
    const char* movie = options.movie;
    const char* output = options.output;
    libavIF media(movie);
    if (media.open_input_file(0) != 0) {
        return fail(movie, output, "Cold Not Open File", media.error_text, 20001, media.error_code, reply);
    }
    if (!media.hasAudio(0)) {
        return fail(movie, output, "Movie Has No Audio Stream!!", media.error_text, 20001, media.error_code, reply);
    }
    if (!output) {
        return fail(movie, output, "Audio Path is NULL!!", media.error_text, 20001, -1, reply);
    }
    ReportProgress report;
    if (client.listens()) {
        report = [&](NQ360_STATE state, int64_t packets) {
            return client.send(state,
                               make_json_result2(movie, output, state, static_cast<unsigned long long>(packets)));
        };
    }
    media.sound_codec = options.sound_codec == NQ360_SOUND_AAC ? AV_CODEC_ID_AAC : AV_CODEC_ID_PCM_S16LE;
    if (media.write_audio(written, options.cancel_path, static_cast<int>(options.bit_rate), report) != 0) {
        *cancelled = media.cancelled;
        return media.cancelled
                   ? fail(movie, output, "Canceled", media.error_text, 29999, -1, reply)
                   : fail(movie, output, "Colud Not Write Audio!!", media.error_text, 29999, media.error_code, reply);
    }
    *reply = make_json_result2(movie, output, NQ360_FINISHED, ~0ULL);
    return 0;
}

// The same with the established end of an unexpected failure: it counts as a success, keeps the file, and its
// reply, sent with NQ360_FINISHED, holds "errnum". Callers tell it by that; deliberate. With options it is a failure.
int extract_guarded(const NQ360_AUDIO_OPTIONS& options, const char* written, bool plain, const Client& client,
                    const char** reply, bool* cancelled) {
    nq360_log(1, "[_NQT360_get_audio]");
    int outcome = 0;
    try {
        outcome = extract(options, written, client, reply, cancelled);
    } catch (...) {
        fail(options.movie, options.output, "an unknown error occurred", thrown_text().c_str(), 29999, -1, reply);
        outcome = plain ? 0 : -1;
    }
    if (outcome == 0) {
        nq360_log(1, "[_NQT360_get_audio] ok");
    }
    return outcome;
}

// One extraction by the plain interface or with options, from the checks to the last reply, whose state it returns.
// *unexpected tells whether an exception ended it. The tags of the log lines are spelled with an extra letter on
// purpose.
NQ360_STATE audio_job(const NQ360_AUDIO_OPTIONS& options, bool plain, const Client& client, bool* unexpected) {
    const char* movie = options.movie;
    const char* output = options.output;
    const auto refuse = [&](int errnum, const char* errstr, const char* why = "") {
        const char* reply = nullptr;
        const int outcome = fail(movie, output, errstr, why, errnum, -1, &reply);
        TextPtr reply_owner(const_cast<char*>(reply));
        nq360_log(1, "[NQT360_get_audio] state = %d", outcome);
        client.send(NQ360_FAILED, reply_owner.release());
        return NQ360_FAILED;
    };
    OutputPlace place(output, plain ? OutputPlace::kInPlace : OutputPlace::kBeside);
    try {
        nq360_log(1, "[NQT360_get_audio]");
        if (const std::string fault = plain ? "" : fault_of(options); !fault.empty()) {
            movie = output = nullptr;
            return refuse(20005, "bad option", fault.c_str());
        }
        if (!fileExists(movie)) {
            return refuse(20000, "Input file not exiists");
        }
        const char* written = output;
        if (output) {
            if (!isWritable(output) || isSameFile(output, movie) || isSameFile(output, options.cancel_path)) {
                return refuse(20003, "audio not writable");
            }
            if (check_freesize(nullptr, nullptr, output) != 0) {
                return refuse(20004, "disk is full");
            }
            if (const std::string fault = place.prepare(); !fault.empty()) {
                return refuse(20003, "audio not writable", fault.c_str());
            }
            written = place.path();
        }
        const char* reply = nullptr;
        bool cancelled = false;
        const int outcome = extract_guarded(options, written, plain, client, &reply, &cancelled);
        TextPtr reply_owner(const_cast<char*>(reply));
        nq360_log(1, "[NQT360_get_audio] state = %d", outcome);
        if (outcome == 0) {
            place.keep();
        } else {
            place.discard();
        }
        const NQ360_STATE failure = cancelled ? NQ360_CANCELLED : NQ360_FAILED;
        const NQ360_STATE state = outcome == 0 ? NQ360_FINISHED : failure;
        client.send(state, reply_owner.release());
        return state;
    } catch (...) {
        *unexpected = true;
        place.discard();
        answer_unexpected(client, kBareReply, [&](const char* text) {
            return make_json_errstr2(movie, output, "an unknown error occurred", text, 29999, -1);
        });
        return NQ360_FAILED;
    }
}

}  // namespace

int NQ360_get_audio(const char* movie_path, const char* audio_path, int bit_rate, const char* cancel_path,
                    NQ360_CALLBACK callback) {
    NQ360_AUDIO_OPTIONS options;
    NQ360_audio_options_init(&options);
    options.movie = movie_path;
    options.output = audio_path;
    options.bit_rate = bit_rate;
    options.cancel_path = cancel_path;
    const Client client(callback);
    bool unexpected = false;
    audio_job(options, true, client, &unexpected);
    return unexpected && client.listens() ? -1 : 0;
}

int NQ360_get_audio_with(const NQ360_AUDIO_OPTIONS* options) {
    if (!options) {
        return NQ360_FAILED;
    }
    const LogSink log(log_of(options->log, options->user));
    bool unexpected = false;
    return audio_job(*options, false, Client(options->reply, options->user), &unexpected);
}
