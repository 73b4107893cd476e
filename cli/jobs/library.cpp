#include "jobs/library.h"

#include <exception>
#include <memory>

namespace {

// One call, as its callback knows it.
struct Call {
    const ReplyHandler* handler;
    Outcome outcome;
    std::exception_ptr thrown;
};

int receive(NQ360_STATE state, const char* json, void* user) {
    Call* const call = static_cast<Call*>(user);
    try {
        if (state != NQ360_STARTED && state != NQ360_PROGRESS) {
            call->outcome = {state, json};
            return 0;
        }
        return call->handler && *call->handler && (*call->handler)(state, json) ? 1 : 0;
    } catch (...) {
        call->thrown = std::current_exception();
        return 1;
    }
}

// Calls `function` with the record, whose replies become the outcome.
template <typename Record, typename Function>
Outcome call(Record record, const ReplyHandler* handler, Function&& function) {
    Call here = {handler, {}, nullptr};
    record.reply = receive;
    record.user = &here;
    function(&record);
    if (here.thrown) {
        std::rethrow_exception(here.thrown);
    }
    return here.outcome;
}

const char* or_null(const std::optional<std::string>& text) {
    return text ? text->c_str() : nullptr;
}

NQ360_EXPORT_OPTIONS record_of(const ExportJob& job) {
    NQ360_EXPORT_OPTIONS options = job.options;
    options.lens1 = job.lens[0].c_str();
    options.lens2 = job.lens[1].c_str();
    options.output = job.output.c_str();
    options.band = or_null(job.band);
    options.datetime = or_null(job.date);
    options.cancel_path = job.cancel_path.c_str();
    return options;
}

}  // namespace

Outcome analyze_file(const std::string& path, const std::optional<std::string>& thumbnail, int thumbnail_width) {
    NQ360_ANALYZE_OPTIONS options;
    NQ360_analyze_options_init(&options);
    options.input = path.c_str();
    options.thumbnail = or_null(thumbnail);
    options.thumbnail_width = thumbnail_width;
    options.thumbnail_always = 1;
    options.quick = 1;
    return call(options, nullptr, NQ360_analyze_with);
}

Outcome export_panorama(const ExportJob& job, const ReplyHandler& handler) {
    return call(record_of(job), &handler, NQ360_export_with);
}

Outcome preview_panorama(const ExportJob& job, std::string* jpeg, NQ360_SHOT* shot) {
    return call(record_of(job), nullptr, [jpeg, shot](const NQ360_EXPORT_OPTIONS* options) {
        unsigned char* bytes = nullptr;
        size_t size = 0;
        NQ360_preview(options, shot, &bytes, &size);
        const std::unique_ptr<unsigned char, decltype(&NQ360_free)> owner(bytes, NQ360_free);
        jpeg->assign(bytes, bytes + size);
    });
}

ShotHandle open_shot(const ExportJob& job, Outcome* outcome) {
    ShotHandle shot;
    *outcome = call(record_of(job), nullptr,
                    [&shot](const NQ360_EXPORT_OPTIONS* options) { shot.reset(NQ360_shot_open(options)); });
    return shot;
}

Outcome match_lenses(const ExportJob& job, const ReplyHandler& handler) {
    return call(record_of(job), &handler, [](const NQ360_EXPORT_OPTIONS* options) { NQ360_match(options, nullptr); });
}

Outcome extract_sound(const SoundJob& job, const ReplyHandler& handler) {
    NQ360_AUDIO_OPTIONS options;
    NQ360_audio_options_init(&options);
    options.movie = job.movie.c_str();
    options.output = or_null(job.output);
    options.sound_codec = job.aac ? NQ360_SOUND_AAC : NQ360_SOUND_PCM;
    options.cancel_path = job.cancel_path.c_str();
    return call(options, &handler, NQ360_get_audio_with);
}

Outcome join_shares(const JoinJob& job, const ReplyHandler& handler) {
    std::vector<const char*> files;
    files.reserve(job.files.size());
    for (const std::string& file : job.files) {
        files.push_back(file.c_str());
    }
    NQ360_JOIN_OPTIONS options;
    NQ360_join_options_init(&options);
    options.files = files.data();
    options.file_count = files.size();
    options.output = job.output.c_str();
    options.cancel_path = job.cancel_path.c_str();
    return call(options, &handler, NQ360_join);
}
