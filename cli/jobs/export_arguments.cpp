#include "jobs/export_arguments.h"

#include <algorithm>
#include <initializer_list>

#include "jobs/defaults.h"
#include "jobs/option.h"

namespace {

void add_look(CLI::App& app, ExportArguments& arguments) {
    add_parsed(app, "--size", arguments.size, parse_size, "WxH",
               "pixels of the panorama (what the lenses have, in a movie at most 3840x1920; preview 1024x512)");
    add_parsed(app, "--tilt", arguments.tilt, parse_degrees, "DEGREES",
               "turn the panorama: with 0 lens 1 looks up, with 90 lens 2 looks at the middle, with -90 lens 1 does "
               "(0)");
    add_parsed(app, "--yaw", arguments.yaw, parse_look, "DEGREES", "then turn the look to the right,");
    add_parsed(app, "--pitch", arguments.pitch, parse_look, "DEGREES", "up,");
    add_parsed(app, "--roll", arguments.roll, parse_look, "DEGREES", "and its horizon clockwise");
    add_turns(app, arguments.pair);
    add_parsed(app, "--correct1", arguments.corrections[0], parse_correction, "Y,U,V",
               "add to brightness and colour of lens 1, each -255 to 255; - leaves one alone");
    add_parsed(app, "--correct2", arguments.corrections[1], parse_correction, "Y,U,V", "the same for lens 2");
    add_parsed(app, "--gain1", arguments.gains[0], parse_gains, "Y,U,V",
               "multiply brightness and colour of lens 1, each 0 to 16; a single number is for all three");
    add_parsed(app, "--gain2", arguments.gains[1], parse_gains, "Y,U,V", "the same for lens 2");
    add_parsed(app, "--feather", arguments.feather, parse_feather, "DEGREES",
               "mix the lenses so far on each side of the seam, 0 to 5.5 (1.5)");
    add_text(app, "--band", arguments.band, "FILE", "lay this picture, an opaque strip, over the seam");
}

void add_coding(CLI::App& app, ExportArguments& arguments, const char* jobs) {
    add_parsed(app, "--quality", arguments.quality, parse_quality, "N", "of a picture, 1 to 100 (95)");
    add_parsed(app, "--bit-rate", arguments.bit_rate, parse_bit_rate, "RATE",
               "of a movie in bits per second, such as 40M (that of the inputs)");
    add_parsed(app, "--sound", arguments.sound, parse_sound, "1|2|none", "whose sound the movie gets (1)");
    app.add_flag("--aac", arguments.aac, "write the sound as AAC, which sites take, not as PCM");
    app.add_flag("--web", arguments.web, "put a movie's index in front, so that it plays while it loads");
    add_parsed(app, "--jobs", arguments.jobs, parse_jobs, "N", jobs);
}

}  // namespace

void add_export_arguments(CLI::App& app, ExportArguments& arguments) {
    add_lenses(app, arguments.pair);
    app.add_option("OUT", arguments.output,
                   "panorama: .jpg of two pictures, .mov or .mp4 of movies; in a folder it is called after LENS1")
        ->required();
    add_panorama_options(app, arguments,
                         "make so many parts of a movie at a time (one per core); the file is the same for any number");
}

void add_panorama_options(CLI::App& app, ExportArguments& arguments, const char* jobs) {
    add_look(app, arguments);
    add_coding(app, arguments, jobs);
    add_range(app, arguments.pair);
    add_text(app, "--date", arguments.date, "TEXT", "capture date in the metadata (that of lens 1)");
    app.add_flag("--partial", arguments.partial, "export what there is of inputs that are damaged or cut short");
    app.add_flag("--exact", arguments.exact,
                 "make what the library's plain function makes: hard seam, the encoder's own quality, no metadata of "
                 "the camera, times as they are");
}

ExportJob job_of(const ExportArguments& arguments) {
    ExportJob job;
    NQ360_EXPORT_OPTIONS& options = job.options;
    if (!arguments.exact) {
        set_usual(&options);
    }
    fill(arguments.pair, &job);
    job.output = arguments.output;
    job.band = arguments.band;
    job.date = arguments.date;
    const Size size = arguments.size.value_or(Size());
    options.width = size.width;
    options.height = size.height;
    options.angle = arguments.tilt;
    options.yaw = arguments.yaw;
    options.pitch = arguments.pitch;
    options.roll = arguments.roll;
    std::copy_n(arguments.corrections[0].begin(), 3, options.correct1);
    std::copy_n(arguments.corrections[1].begin(), 3, options.correct2);
    std::copy_n(arguments.gains[0].begin(), 3, options.gain1);
    std::copy_n(arguments.gains[1].begin(), 3, options.gain2);
    options.feather = arguments.feather.value_or(options.feather);
    options.quality = arguments.quality.value_or(options.quality);
    options.bit_rate = arguments.bit_rate;
    options.audio_source = arguments.sound;
    options.sound_codec = arguments.aac ? NQ360_SOUND_AAC : NQ360_SOUND_PCM;
    options.web = arguments.web ? 1 : 0;
    options.workers = arguments.jobs.value_or(options.workers);
    options.whole_inputs_only = arguments.partial ? 0 : options.whole_inputs_only;
    return job;
}

std::string idle_options(const CLI::App& app, bool makes_picture, bool from_pictures) {
    std::string names;
    const auto note = [&](std::initializer_list<const char*> options) {
        for (const char* name : options) {
            if (app.get_option(name)->count() > 0) {
                names += (names.empty() ? "" : ", ") + std::string(name);
            }
        }
    };
    if (from_pictures) {
        note({"--start", "--start2", "--end", "--end2"});
    }
    if (makes_picture) {
        note({"--bit-rate", "--sound", "--aac", "--web", "--jobs"});
    } else {
        note({"--quality"});
    }
    return names;
}
