#include "jobs/library.h"

#include "jobs/replies.h"

namespace {

// The library's callback has no room for a pointer of ours; replies come on the thread of the call.
struct Call {
    Outcome outcome;
    const FrameHandler* handler = nullptr;
};
thread_local Call* current_call = nullptr;

void receive(NQ360_STATE state, const char* json) {
    if (state == NQ360_STARTED || state == NQ360_PROGRESS) {
        if (current_call->handler && *current_call->handler) {
            (*current_call->handler)(state, frame_count_of(json));
        }
        return;
    }
    current_call->outcome = {state, json ? json : ""};
}

template <typename Function>
Outcome call(const FrameHandler* handler, Function&& function) {
    Call here;
    here.handler = handler;
    current_call = &here;
    function();
    current_call = nullptr;
    return here.outcome;
}

const char* or_null(const std::optional<std::string>& text) {
    return text ? text->c_str() : nullptr;
}

}  // namespace

Outcome analyze_file(const std::string& path, const std::optional<std::string>& thumbnail, int thumbnail_width) {
    return call(nullptr, [&] {
        NQ360_analyze_image(path.c_str(), or_null(thumbnail), thumbnail_width, thumbnail ? 1 : 0, receive);
    });
}

Outcome export_panorama(const ExportJob& job, const std::string& cancel_path, const FrameHandler& handler) {
    const Correction& one = job.corrections[0];
    const Correction& two = job.corrections[1];
    return call(&handler, [&] {
        NQ360_export(job.inputs[0].c_str(), job.inputs[1].c_str(), job.output.c_str(), or_null(job.band), job.width,
                     job.height, job.tilt, one.y, one.u, one.v, two.y, two.u, two.v, job.sound, job.date.c_str(),
                     cancel_path.c_str(), receive, job.turns[0], job.turns[1], job.starts[0], job.starts[1],
                     job.ends[0], job.ends[1]);
    });
}

Outcome extract_sound(const std::string& movie, const std::string& output, const std::string& cancel_path,
                      const FrameHandler& handler) {
    constexpr int kOwnBitRate = 0;
    return call(&handler,
                [&] { NQ360_get_audio(movie.c_str(), output.c_str(), kOwnBitRate, cancel_path.c_str(), receive); });
}
