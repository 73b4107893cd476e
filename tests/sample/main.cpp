// nq360-sample: makes the files that a dual-lens camera would make, without the camera.
#include <cstdio>
#include <exception>
#include <string>

#include <CLI/CLI.hpp>
#include <opencv2/imgproc.hpp>

#include "sample/options.h"
#include "sample/picture.h"
#include "sample/scene.h"
#include "sample/still.h"

namespace {

using namespace sample;

struct DumpOptions {
    std::string scene = "drawn";
    std::string output;
    int width = 3840;
    int height = 0;  // 0: half the width
    int frame = 0;
    bool gray = false;
};

void write_scene(const DumpOptions& options) {
    const int height = options.height > 0 ? options.height : options.width / 2;
    const cv::Mat drawn = scene_named(options.scene)->draw(options.width, height, options.frame * kTurnOfFrame);
    const cv::Mat yuv = drawn.rowRange(0, height);
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
                    "Orientation; the pictures are turned so that an export undoes it")
        ->check(CLI::IsMember({1, 3, 6, 8}))
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
    command
        ->add_flag_callback(
            "--no-exif", [&options] { options.exif = false; }, "Leave the EXIF segment out")
        ->group("Metadata");
    command->add_option("--xmp", options.xmp_path, "Put the XMP packet in this file into the pictures")
        ->check(CLI::ExistingFile)
        ->group("Metadata");
    return command;
}

CLI::App* add_dump(CLI::App& app, DumpOptions& options) {
    CLI::App* command = app.add_subcommand("dump", "The scene as a panorama (PNG), to compare an export with");
    command->add_option("output", options.output, "PNG file")->required();
    command->add_option("--width", options.width, "Columns")->check(CLI::Range(2, 32766))->capture_default_str();
    command->add_option("--height", options.height, "Rows; half the columns unless given")->check(CLI::Range(1, 32766));
    command->add_option("--frame", options.frame, "As it stands at this frame of a movie")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command->add_flag("--gray", options.gray, "Y alone");
    add_scene_option(*command, options.scene);
    return command;
}

}  // namespace

int main(int argc, char** argv) {
    av_log_set_level(AV_LOG_ERROR);
    CLI::App app(
        "Makes the files that a dual-lens 360-degree camera would make. The same arguments give the same\n"
        "bytes. Exit status: 0 when all was written, 1 when something failed, 2 for wrong arguments.",
        "nq360-sample");
    app.require_subcommand(1);
    StillOptions still;
    DumpOptions dump;
    const CLI::App* still_command = add_still(app, still);
    const CLI::App* dump_command = add_dump(app, dump);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        if (still_command->parsed()) {
            write_stills(still);
        } else if (dump_command->parsed()) {
            write_scene(dump);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "nq360-sample: %s\n", error.what());
        return 1;
    }
    return 0;
}
