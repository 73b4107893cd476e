#include "orders.h"

#include <filesystem>
#include <memory>

#include "jobs/errors.h"
#include "jobs/failure.h"
#include "jobs/range.h"
#include "jobs/shot_export.h"
#include "jobs/sound.h"

namespace fs = std::filesystem;

std::string ending_of_panorama(const ListedShot& shot) {
    return usual_ending(shot.description.is_picture, shot.names[0]);
}

QueuedJob order_panorama(const ListedShot& shot, ExportJob job, const Settings& settings) {
    apply_look(settings, &job);
    apply_coding(settings, &job);
    apply_range(settings, &job);
    const auto ready = std::make_shared<ExportJob>(std::move(job));
    const bool has_range = !shot.description.is_picture;
    const auto prepare = [ready, has_range] {
        const Description lenses[2] = {describe(ready->lens[0]), describe(ready->lens[1])};
        if (has_range) {
            begin_with_the_frames_meant(lenses, ready.get());
        }
        if (has_range && ready->options.audio_source >= 0 && !has_sound(ready->lens[ready->options.audio_source])) {
            ready->options.audio_source = -1;
        }
    };
    const auto run = [ready](const std::string& output, const std::string& cancel_path, const ReplyHandler& handler) {
        ExportJob here = *ready;
        here.output = output;
        here.cancel_path = cancel_path;
        return export_panorama(here, handler);
    };
    return {Operation::kExport,
            shot.names[0],
            fs::path(ready->output).filename().string(),
            prepare,
            run,
            [ready](const Json& error) { return export_failure(error, *ready); },
            [ready](const Json& result) { return missing_parts(result, *ready); },
            "",
            nullptr};
}

QueuedJob order_sound(const std::string& name, const SoundJob& job) {
    const auto run = [job](const std::string& output, const std::string& cancel_path, const ReplyHandler& handler) {
        SoundJob here = job;
        here.output = output;
        here.cancel_path = cancel_path;
        return extract_sound(here, handler);
    };
    return {Operation::kSound,
            name,
            fs::path(*job.output).filename().string(),
            [] {},
            run,
            [job](const Json& error) { return sound_failure(error, job.movie, *job.output); },
            [](const Json&) { return std::string(); },
            "",
            nullptr};
}
