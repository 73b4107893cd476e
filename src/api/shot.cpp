#include "api/shot.h"

#include <stdexcept>

#include "api/options.h"
#include "api/reply.h"
#include "api/unexpected.h"
#include "base/files.h"
#include "media/lens_file.h"

namespace {

// Null with the reply of a failure.
std::unique_ptr<NQ360_SHOT> analyzed(const NQ360_EXPORT_OPTIONS& options, const char** reply) {
    const Paths paths = {options.lens1, options.lens2, nullptr, nullptr};
    if (!fileExists(options.lens1) || !fileExists(options.lens2)) {
        const bool first = !fileExists(options.lens1);
        fail(paths, first ? "Input file1 not exiists" : "Input file2 not exiists", "", 30000, -1, reply);
        return nullptr;
    }
    AnalyzeResult input1;
    AnalyzeResult input2;
    if (analyze_inputs(paths, &input1, &input2, reply) != 0) {
        return nullptr;
    }
    check_lenses({input1.width, input1.height}, 0);
    return std::unique_ptr<NQ360_SHOT>(
        new NQ360_SHOT{options.lens1, options.lens2, input1, input2, OpenShot(options.lens1, options.lens2)});
}

// 0, or -1 with the reply of a failure.
int go_to_start(NQ360_SHOT* shot, const NQ360_EXPORT_OPTIONS& options, const char** reply) {
    try {
        shot->frames.go_to(options.start1, options.start2);
    } catch (const UnreadableFile& unreadable) {
        return fail(shot->paths(), "Could not open file", unreadable.what(), 30001, unreadable.code(), reply);
    }
    check_frames(*shot, shot->frames);
    return 0;
}

void check_frame(const AVFrame* frame, ImageSize expected, int number) {
    if (frame->width != expected.width || frame->height != expected.height) {
        throw std::runtime_error("input " + std::to_string(number) + " has a frame of " + std::to_string(frame->width) +
                                 "x" + std::to_string(frame->height) + " where " + std::to_string(expected.width) +
                                 "x" + std::to_string(expected.height) + " was expected");
    }
}

}  // namespace

void check_frames(const NQ360_SHOT& shot, const OpenShot& frames) {
    check_frame(frames.frame(0), shot.lens_size(), 1);
    check_frame(frames.frame(1), shot.lens_size(), 2);
}

char* make_json_shot(const NQ360_SHOT& shot, ImageSize size) {
    const Paths paths = shot.paths();
    char* reply = make_json_result3(paths.movie1, paths.movie2, paths.output, NQ360_FINISHED, 0);
    reply = with_key(reply, "width", std::to_string(size.width));
    return with_key(reply, "height", std::to_string(size.height));
}

NQ360_STATE shot_job(const NQ360_EXPORT_OPTIONS* options, NQ360_SHOT* shot, std::unique_ptr<NQ360_SHOT>* opened,
                     const ShotWork& work) {
    if (!options) {
        return NQ360_FAILED;
    }
    const LogSink log(log_of(options->log, options->user));
    const Client client(options->reply, options->user);
    Paths paths = {};
    try {
        const char* reply = nullptr;
        NQ360_STATE state = NQ360_FAILED;
        const std::string fault = fault_of_look(*options);
        if (!fault.empty()) {
            fail(paths, "bad option", fault.c_str(), 30005, -1, &reply);
        } else {
            paths = shot ? shot->paths() : Paths{options->lens1, options->lens2, nullptr, nullptr};
            if (!shot) {
                *opened = analyzed(*options, &reply);
                shot = opened->get();
            }
            if (shot && go_to_start(shot, *options, &reply) == 0) {
                state = work(*shot, client, &reply);
            }
        }
        client.send(state, reply);
        return state;
    } catch (...) {
        answer_unexpected(client, kBareExportReply, [&](const char* text) {
            return make_json_errstr3(paths.movie1, paths.movie2, paths.output, "an unknown error occurred", text, 39999,
                                     -1);
        });
        return NQ360_FAILED;
    }
}

NQ360_SHOT* NQ360_shot_open(const NQ360_EXPORT_OPTIONS* options) {
    std::unique_ptr<NQ360_SHOT> opened;
    const auto work = [](NQ360_SHOT& shot, const Client&, const char** reply) {
        *reply = make_json_shot(shot, shot.lens_size());
        return NQ360_FINISHED;
    };
    const NQ360_STATE state = shot_job(options, nullptr, &opened, std::ref(work));
    return state == NQ360_FINISHED ? opened.release() : nullptr;
}

void NQ360_shot_close(NQ360_SHOT* shot) {
    const std::unique_ptr<NQ360_SHOT> owner(shot);
}
