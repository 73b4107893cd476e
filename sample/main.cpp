// nq360-sample: makes the files that a dual-lens camera would make, without the camera.
#include <array>
#include <charconv>
#include <cstdio>
#include <exception>
#include <map>
#include <string>
#include <system_error>

#include <CLI/CLI.hpp>
#include <opencv2/imgproc.hpp>

#include "sample/movie.h"
#include "sample/options.h"
#include "sample/picture.h"
#include "sample/scene.h"
#include "sample/sphere.h"
#include "sample/still.h"

namespace {

using namespace sample;

struct DumpOptions {
    std::string scene = "drawn";
    std::string output;
    int width = 3840;
    int height = 0;  // 0: half the width
    int frame = 0;
    std::array<double, 3> view{};  // yaw, pitch and roll in degrees
    bool gray = false;
};

// Full-range Y, U, V.
cv::Mat draw_panorama(const DumpOptions& options, int height) {
    const auto scene = scene_named(options.scene);
    if (options.view == std::array<double, 3>{}) {
        return scene->draw(options.width, height, options.frame * kTurnOfFrame).rowRange(0, height);
    }
    // Twice as fine, so that looking up takes little away.
    const Sphere sphere(*scene, 2 * options.width, false);
    return looked_at(sphere, {options.view[0], options.view[1], options.view[2]}, {options.width, height});
}

void write_scene(const DumpOptions& options) {
    const int height = options.height > 0 ? options.height : options.width / 2;
    const cv::Mat yuv = draw_panorama(options, height);
    cv::Mat picture;
    if (options.gray) {
        cv::extractChannel(yuv, picture, 0);
    } else {
        cv::Mat ycrcb(yuv.size(), CV_8UC3);
        const int order[] = {0, 0, 1, 2, 2, 1};
        cv::mixChannels(&yuv, 1, &ycrcb, 1, order, 3);
        cv::cvtColor(ycrcb, picture, cv::COLOR_YCrCb2RGB);
    }
    write_png(options.output, picture);
}

void add_scene_option(CLI::App& command, std::string& scene) {
    command.add_option("--scene", scene, "\"drawn\", or an equirectangular picture (PNG, JPEG, PGM, PPM)")
        ->capture_default_str();
}

void add_tag_options(CLI::App& command, CameraTags& tags) {
    const std::string group = "Metadata";
    command.add_option("--make", tags.make, "Maker of the camera")->capture_default_str()->group(group);
    command.add_option("--model", tags.model, "Model of the camera")->capture_default_str()->group(group);
    command.add_option("--datetime", tags.datetime, "Date and time of the shot")->capture_default_str()->group(group);
    command
        .add_option("--orientation", tags.orientation,
                    "Orientation; for 3, 6 and 8 the pictures are turned so that an export undoes it")
        ->check(CLI::Range(1, 8))
        ->capture_default_str()
        ->group(group);
    command.add_option("--capture-mode", tags.capture_mode, "Maker note: capture mode (128, 129, 134: 360 degrees)")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str()
        ->group(group);
    command.add_option("--tag-4003", tags.tag_4003, "Maker note: tag 0x4003")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str()
        ->group(group);
    command.add_option("--tag-4034", tags.tag_4034, "Maker note: tag 0x4034")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str()
        ->group(group);
    command.add_option("--multi-capture", tags.multi_capture, "Maker note: multi-capture value")
        ->capture_default_str()
        ->group(group);
    command.add_option("--camera-orientation", tags.camera_orientation, "Maker note: orientation of the camera")
        ->check(CLI::Range(0, 255))
        ->capture_default_str()
        ->group(group);
    command
        .add_flag_callback(
            "--no-maker-note", [&tags] { tags.maker_note = false; }, "Leave the maker note out")
        ->group(group);
}

void add_shot_options(CLI::App& command, ShotOptions& shot) {
    command.add_option("output1", shot.outputs[0], "File of lens 1")->required();
    command.add_option("output2", shot.outputs[1], "File of lens 2")->required();
    command.add_option("--size", shot.size, "Pixels of either side; the camera has 1440, 1936 and 3888")
        ->check(CLI::Range(16, 8192))
        ->capture_default_str();
    add_scene_option(command, shot.scene);
    command.add_option("--angle", shot.angle, "Third angle of the export that shows the scene upright, degrees")
        ->capture_default_str();
    command.add_option("--turn1", shot.turns[0], "Turn of lens picture 1 that the export's angle 1 undoes, degrees")
        ->capture_default_str();
    command.add_option("--turn2", shot.turns[1], "The same for lens picture 2 and angle 2")->capture_default_str();
    command.add_option("--factor", shot.factor, "Lens 2's picture is brighter by this, in Y and in colour")
        ->check(CLI::Range(0.0, 16.0))
        ->capture_default_str();
    command.add_option("--difference", shot.difference, "Y,U,V added to lens 2's picture")->delimiter(',');
    command.add_option("--grain", shot.grain, "Noise in Y, as a standard deviation")
        ->check(CLI::Range(0.0, 40.0))
        ->capture_default_str();
    command.add_option("--seed", shot.seed, "Another grain for each number")->capture_default_str();
    add_tag_options(command, shot.tags);
}

CLI::App* add_still(CLI::App& app, StillOptions& options) {
    CLI::App* command = app.add_subcommand("still", "A pair of lens pictures (JPEG)");
    add_shot_options(*command, options);
    command->add_option("--chroma", options.chroma, "Subsampling of colour")
        ->check(CLI::IsMember({"420", "422", "444", "gray"}))
        ->capture_default_str();
    command->add_option("--quality", options.quality, "Quantiser: 1 is finest")
        ->check(CLI::Range(1, 31))
        ->capture_default_str();
    command->add_option("--code", options.code, "Burn this number in, as movies have the frame's")
        ->check(CLI::Range(0, 65535));
    command
        ->add_flag_callback(
            "--no-exif", [&options] { options.exif = false; }, "Leave the EXIF segment out")
        ->group("Metadata");
    command->add_option("--xmp", options.xmp_path, "Put the XMP packet in this file into the pictures")
        ->check(CLI::ExistingFile)
        ->group("Metadata");
    return command;
}

void add_codec_options(CLI::App& command, MovieOptions& options) {
    const CLI::IsMember codecs({"h264-baseline", "h264-main", "h264-high", "mjpeg"});
    command.add_option("--codec", options.codecs[0], "Codec of both movies, or of lens 1's with --codec2")
        ->check(codecs)
        ->capture_default_str();
    command.add_option("--codec2", options.codecs[1], "Codec of lens 2's movie, where it differs")->check(codecs);
    command.add_option("--bit-rate", options.bit_rate, "Bits per second (H.264); 30 million for 1936 unless given")
        ->check(CLI::PositiveNumber);
    command.add_option("--key-frames", options.key_frames, "One key frame in so many frames (H.264)")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command.add_flag("--full-range", options.full_range, "Full range of Y, U and V (H.264; MJPEG always has it)");
    command.add_option("--quality", options.quality, "Quantiser (MJPEG): 1 is finest")
        ->check(CLI::Range(1, 31))
        ->capture_default_str();
    command.add_option("--chroma", options.chroma, "Subsampling of colour (MJPEG; H.264 has 420)")
        ->check(CLI::IsMember({"420", "422", "444"}))
        ->capture_default_str();
}

void add_sound_options(CLI::App& command, MovieOptions& options) {
    const std::string group = "Sound";
    const std::map<std::string, std::array<bool, 2>> movies{
        {"1", {true, false}}, {"2", {false, true}}, {"both", {true, true}}, {"none", {false, false}}};
    const auto add_choice = [&](const std::string& name, std::array<bool, 2>& choice, const std::string& text) {
        command
            .add_option_function<std::string>(
                name, [movies, &choice](const std::string& chosen) { choice = movies.at(chosen); }, text)
            ->check(CLI::IsMember({"1", "2", "both", "none"}))
            ->group(group);
    };
    add_choice("--sound", options.sound, "Which movies have sound; lens 1's unless given");
    add_choice("--sound-first", options.sound_first, "In which movies the sound track comes before the video track");
    command.add_option("--sound-codec", options.sound_codec, "16-bit PCM, or AAC")
        ->check(CLI::IsMember({"pcm", "aac"}))
        ->capture_default_str()
        ->group(group);
    command.add_option("--sound-rate", options.sound_rate, "Samples per second")
        ->check(CLI::Range(8000, 96000))
        ->capture_default_str()
        ->group(group);
    command.add_option("--sound-channels", options.sound_channels, "Channels")
        ->check(CLI::Range(1, 8))
        ->capture_default_str()
        ->group(group);
    command.add_option("--sound-seconds", options.sound_seconds, "Length; as long as the pictures unless given")
        ->check(CLI::NonNegativeNumber)
        ->group(group);
}

void add_container_options(CLI::App& command, MovieOptions& options) {
    const std::string group = "Container";
    command.add_option("--time-scale", options.time_scale, "Units of time per second in the video track")
        ->check(CLI::Range(1, 1000000))
        ->capture_default_str()
        ->group(group);
    CLI::Option* fragmented =
        command.add_flag("--fragmented", options.fragmented, "Write fragments (a frame count of 0)")->group(group);
    command.add_flag("--moov-first", options.moov_first, "Put the moov atom before the pictures, not after")
        ->excludes(fragmented)
        ->group(group);
    command
        .add_flag_callback(
            "--no-maker-atom", [&options] { options.maker_atom = false; }, "Leave the MKRI atom out")
        ->group(group);
}

// "30000/1001" or "25". Returns a message when it is neither, as CLI's checks do.
std::string parse_rate(const std::string& text, std::array<int, 2>& rate) {
    const std::string fraction = text.find('/') == std::string::npos ? text + "/1" : text;
    const char* end = fraction.data() + fraction.size();
    const auto [slash, error] = std::from_chars(fraction.data(), end, rate[0]);
    if (error == std::errc() && slash != end && *slash == '/') {
        const auto [rest, second_error] = std::from_chars(slash + 1, end, rate[1]);
        if (second_error == std::errc() && rest == end && rate[0] > 0 && rate[1] > 0) {
            return "";
        }
    }
    return text + " is no frame rate, as 25 and 30000/1001 are";
}

CLI::App* add_movie(CLI::App& app, MovieOptions& options) {
    CLI::App* command = app.add_subcommand(
        "movie", "A pair of lens movies (.mov, .mp4), with the lens and the frame's number burnt into each frame");
    add_shot_options(*command, options);
    command
        ->add_option("--frames", options.frames[0],
                     "Frames of both movies, or of lens 1's with --frames2; 0: no video track, or an\n"
                     "empty one with --fragmented")
        ->check(CLI::Range(0, 65536))
        ->capture_default_str();
    command->add_option("--frames2", options.frames[1], "Frames of lens 2's movie, where they differ")
        ->check(CLI::Range(0, 65536));
    command
        ->add_option_function<std::string>(
            "--rate", [&options](const std::string& text) { parse_rate(text, options.rate); },
            "Frames per second; 30000/1001 unless given")
        ->check([](const std::string& text) {
            std::array<int, 2> ignored{};
            return parse_rate(text, ignored);
        });
    command->add_flag_callback(
        "--no-labels", [&options] { options.labels = false; }, "Burn in neither the lens nor the frame's number");
    add_codec_options(*command, options);
    add_sound_options(*command, options);
    add_container_options(*command, options);
    command->callback([command, &options] {
        if (command->count("--frames2") == 0) {
            options.frames[1] = options.frames[0];
        }
        if (command->count("--codec2") == 0) {
            options.codecs[1] = options.codecs[0];
        }
    });
    return command;
}

void add_dump(CLI::App& app, DumpOptions& options) {
    CLI::App* command = app.add_subcommand("dump", "The scene as a panorama (PNG), to compare an export with");
    command->add_option("output", options.output, "PNG file")->required();
    command->add_option("--width", options.width, "Columns")->check(CLI::Range(2, 32766))->capture_default_str();
    command->add_option("--height", options.height, "Rows; half the columns unless given")->check(CLI::Range(1, 32766));
    CLI::Option* frame = command->add_option("--frame", options.frame, "As it stands at this frame of a movie")
                             ->check(CLI::NonNegativeNumber)
                             ->capture_default_str();
    command
        ->add_option("--view", options.view,
                     "YAW,PITCH,ROLL in degrees: looked at to the right, up, and turned clockwise")
        ->delimiter(',')
        ->excludes(frame);
    command->add_flag("--gray", options.gray, "Y alone");
    add_scene_option(*command, options.scene);
}

int run(int argc, char** argv) {
    CLI::App app(
        "Makes the files that a dual-lens 360-degree camera would make. The same arguments give the same\n"
        "bytes. Exit status: 0 when all was written, 1 when something failed, 2 for wrong arguments.",
        "nq360-sample");
    app.require_subcommand(1);
    StillOptions still;
    MovieOptions movie;
    DumpOptions dump;
    const CLI::App* still_command = add_still(app, still);
    const CLI::App* movie_command = add_movie(app, movie);
    add_dump(app, dump);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (still_command->parsed()) {
        write_stills(still);
    } else if (movie_command->parsed()) {
        write_movies(movie);
    } else {
        write_scene(dump);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        av_log_set_level(AV_LOG_ERROR);
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "nq360-sample: %s\n", error.what());
        return 1;
    }
}
