#include "api/export.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "api/analyze.h"
#include "api/client.h"
#include "api/options.h"
#include "api/reply.h"
#include "api/unexpected.h"
#include "base/files.h"
#include "base/log.h"
#include "base/output_place.h"
#include "base/progress.h"
#include "base/text.h"
#include "base/text_owner.h"
#include "base/thrown_text.h"
#include "media/libavif.h"
#include "media/loading.h"
#include "metadata/jpeg.h"
#include "metadata/mov.h"
#include "metadata/spherical.h"
#include "projection/angles.h"
#include "projection/lens_circle.h"

namespace {

// The reply of a call that is out of memory.
constexpr char kBareReply[] =
    R"({"errnum":"39999","errstr":"an unknown error occurred","api_errnum":-1,"api_errstr":"std::bad_alloc",)"
    R"("movie_path1":"","movie_path2":"","export_path":""})";

struct Paths {
    const char* movie1;
    const char* movie2;
    const char* output;   // as the replies name it
    const char* written;  // where it is written to
};

// Which of the two interfaces a job came by: the plain one writes in place and reads whole inputs alone.
enum class Interface { kPlain, kWithOptions };

int fail(const Paths& paths, const char* errstr, const char* api_errstr, int errnum, int api_errnum,
         const char** json_out) {
    *json_out = make_json_errstr3(paths.movie1, paths.movie2, paths.output, errstr, on_one_line(api_errstr).c_str(),
                                  errnum, api_errnum);
    return -1;
}

int analyze_input(const Paths& paths, const char* input_path, const char* errstr, AnalyzeResult* result,
                  const char** json_out) {
    const int outcome = _NQ360_export_analyze(input_path, result);
    if (outcome != 0) {
        fail(paths, errstr, "[_NQ360_export_analyze]:analyze error", 30001, outcome, json_out);
    }
    return outcome;
}

int check_sizes(const Paths& paths, const AnalyzeResult& input1, const AnalyzeResult& input2, const char** json_out) {
    // The missing colon after "height1" is part of the established text.
    if (input1.width != input2.width || input1.height != input2.height) {
        nq360_log(1, "[_NQ360_export_analyze] size error width1:%d width2:%d height1%d height2:%d", input1.width,
                  input2.width, input1.height, input2.height);
        char text[255];
        snprintf(text, sizeof(text), "[_NQ360_export_analyze]:size error width1:%d width2:%d height1%d height2:%d",
                 input1.width, input2.width, input1.height, input2.height);
        return fail(paths, "Movie/Image different width or height", text, 30001, -1, json_out);
    }
    if (projection_radius(input1.width) == 0) {
        char text[255];
        snprintf(text, sizeof(text), "[_NQ360_export_analyze]:size error width:%d", input1.width);
        return fail(paths, "Movie/Image width not in 3888 , 1936 , 1440", text, 30001, -1, json_out);
    }
    return 0;
}

// What the picture functions would assert or cv::remap refuse; each throws a text for the person who asked.
void check_geometry(const OutputOption& option, ImageSize lens) {
    const ImageSize output = option.output_size;
    if (output.width < 2 || output.height < 2 || output.width > kMostRemapSide || output.height > kMostRemapSide) {
        throw std::runtime_error("the panorama's sides must be 2 to " + std::to_string(kMostRemapSide) +
                                 " pixels, not " + std::to_string(output.width) + " x " +
                                 std::to_string(output.height));
    }
    if (option.radius >= lens.height / 2.0) {
        throw std::runtime_error("the lens pictures are too small for the lens circle: " + std::to_string(lens.width) +
                                 " x " + std::to_string(lens.height));
    }
    const int64_t stack = 2 * static_cast<int64_t>(lens.height) + option.bandheight;
    if (stack > kMostRemapSide) {
        throw std::runtime_error("the lens pictures and the band picture are " + std::to_string(stack) +
                                 " rows high, more than the " + std::to_string(kMostRemapSide) +
                                 " that can be stitched; take a flatter band picture");
    }
}

void load_band(const char* band_path, int width, OutputOption* option) {
    option->band = ImageFrame();
    option->bandheight = 0;
    if (!band_path) {
        return;
    }
    if (isRegularFile(band_path)) {
        option->band = imageframe_from_bandfile(band_path, width, FRAME_TYPE_YUV420);
    }
    if (option->band.frameType == FRAME_TYPE_NOTLOAD || option->band.YUVMats.size() != 3) {
        std::string name = band_path;
        replace_string(name);  // replies take thrown texts as they are
        throw std::runtime_error("the band picture cannot be read: " + name);
    }
    option->bandheight = option->band.YUVMats[0].rows;
}

// The panorama's width for lenses of this one: the lenses' own scale, as far as movies can be encoded.
ImageSize usual_size(int lens_width, bool picture) {
    switch (lens_width) {
        case 1440:
            return {2880, 1440};
        case 3888:
            return picture ? ImageSize{7680, 3840} : ImageSize{3840, 1920};
        default:
            return {3840, 1920};
    }
}

// Turns the lenses as the pictures lie. No tables yet, and none of the caller's: the stitcher makes them row by row,
// which spares the job several times the panorama's memory.
void prepare_projection(const char* band_path, const AnalyzeResult& input1, const AnalyzeResult& input2,
                        OutputOption* option) {
    const ImageSize lens = {input1.width, input1.height};
    if (option->usual_size) {
        option->output_size = usual_size(lens.width, input1.frame_count == 0 && input2.frame_count == 0);
    }
    option->rotation.frame1angle -= orientation_turn(input1.orientation);
    option->rotation.frame2angle += orientation_turn(input2.orientation);
    option->radius = projection_radius(lens.width);
    check_geometry(*option, lens);
    load_band(band_path, lens.width, option);
    check_geometry(*option, lens);
    option->transmap = EquidistantTransMap();
    option->transmap.equsize = option->output_size;
    option->transmap.projsize = lens;
    option->transmap.bandheight = option->bandheight;
}

int64_t total_frames(libavIF* media, const OutputOption& option) {
    const int64_t count1 = media->duration_frame_count(0, option.start1, option.end1);
    const int64_t count2 = media->duration_frame_count(1, option.start2, option.end2);
    if (count1 == 0) {
        return count2;
    }
    return count2 == 0 ? count1 : std::min(count1, count2);
}

// The panorama's own metadata, so that viewers show it as one.
void write_metadata(const Paths& paths, bool picture, const OutputOption& option) {
    const ImageSize size = option.output_size;
    const TextPtr text(
        TALUMO360ViewerMetadata(picture, size.width, size.height, option.datetime ? option.datetime : ""));
    if (picture) {
        _jpeg file(paths.written, true);
        file.wtire_xmp_data(text.get());
        file.close_stream();
    } else {
        _mov file(paths.written, true);
        file.wtire_xml_data(text.get());
        file.close_stream();
    }
}

// Which inputs could be read in part alone, in words.
std::string missing_text(const libavIF& media) {
    std::string text;
    for (int input = 0; input < 2; ++input) {
        if (!media.missing[input].empty()) {
            text += (text.empty() ? "input " : "; input ") + std::to_string(input + 1) + ": " + media.missing[input];
        }
    }
    return text;
}

int write_panorama(const Paths& paths, const char* cancel_path, bool both_pictures, OutputOption* option,
                   const char** json_out, int* cancelled_out, const Client& client) {
    libavIF media(paths.movie1, paths.movie2);
    if (media.open_input_file(0) != 0 || media.open_input_file(1) != 0) {
        return fail(paths, "Could not open file", media.error_text, 30001, media.error_code, json_out);
    }
    const int64_t total = total_frames(&media, *option);
    option->update_frame = nq360_update_frame(total);
    ReportProgress report;
    if (client.listens()) {
        report = [&](NQ360_STATE state, int64_t frames) {
            return client.send(state, make_json_result3(paths.movie1, paths.movie2, paths.output, state,
                                                        static_cast<unsigned long long>(frames)));
        };
    }
    if (report && report(NQ360_STARTED, total)) {
        *cancelled_out = 1;
        return fail(paths, "Canceled", "", 39999, -1, json_out);
    }
    if (media.write_video(paths.written, cancel_path, *option, report) != 0) {
        *cancelled_out = media.cancelled;
        return media.cancelled
                   ? fail(paths, "Canceled", media.error_text, 39999, -1, json_out)
                   : fail(paths, "Could not write video", media.error_text, 39999, media.error_code, json_out);
    }
    media.close_input_file();
    write_metadata(paths, both_pictures, *option);
    char* reply = make_json_result3(paths.movie1, paths.movie2, paths.output, NQ360_FINISHED, ~0ULL);
    const std::string missing = missing_text(media);
    *json_out = missing.empty() ? reply : with_key(reply, "missing", "\"" + missing + "\"");
    return 0;
}

// Whether the output path is a file that this call reads or watches.
bool is_own_input(const char* output, std::initializer_list<const char*> inputs) {
    return std::any_of(inputs.begin(), inputs.end(), [=](const char* path) { return isSameFile(output, path); });
}

// The workflow, from the analysis of the inputs to the metadata of the output. 0 or -1 with the reply in *json_out.
int export_panorama(const Paths& paths, const char* band_path, const char* cancel_path, OutputOption option,
                    const char** json_out, int* cancelled_out, const Client& client) {
    nq360_log(1, "[_NQ360_export]");
    *json_out = nullptr;
    *cancelled_out = 0;
    AnalyzeResult input1;
    AnalyzeResult input2;
    int outcome = analyze_input(paths, paths.movie1, "Analyze Error InputFile1", &input1, json_out);
    if (outcome == 0) {
        outcome = analyze_input(paths, paths.movie2, "Analyze Error InputFile2", &input2, json_out);
    }
    if (outcome != 0) {
        return outcome;
    }
    nq360_log(1, "[_NQ360_export_analyze] frame_count1:%ld frame_count2:%ld", static_cast<long>(input1.frame_count),
              static_cast<long>(input2.frame_count));
    if (check_sizes(paths, input1, input2, json_out) != 0) {
        return -1;
    }
    prepare_projection(band_path, input1, input2, &option);
    return write_panorama(paths, cancel_path, input1.is_picture && input2.is_picture, &option, json_out, cancelled_out,
                          client);
}

OutputOption output_option_of(const NQ360_EXPORT_OPTIONS& options, Interface interface) {
    OutputOption option;
    option.rotation = {radians(options.turn1), radians(options.turn2), 0, 0, radians(options.angle)};
    option.start1 = static_cast<float>(options.start1);
    option.start2 = static_cast<float>(options.start2);
    option.end1 = static_cast<float>(options.end1);
    option.end2 = static_cast<float>(options.end2);
    option.audio_source = options.audio_source;
    option.correct1 = create_linnercorrectmap(options.correct1[0], options.correct1[1], options.correct1[2]);
    option.correct2 = create_linnercorrectmap(options.correct2[0], options.correct2[1], options.correct2[2]);
    option.output_size = {options.width, options.height};
    option.datetime = options.datetime;
    if (interface == Interface::kPlain) {
        return option;
    }
    option.usual_size = options.width == 0 && options.height == 0;
    option.view = {radians(options.yaw), radians(options.pitch), radians(options.roll)};
    option.feather = radians(options.feather);
    std::copy_n(options.gain1, 3, option.gains[0].begin());
    std::copy_n(options.gain2, 3, option.gains[1].begin());
    option.filter = options.filter != 0;
    option.quality = options.quality;
    option.bit_rate = options.bit_rate;
    option.sound_aac = options.sound_codec == NQ360_SOUND_AAC;
    option.keep_metadata = options.keep_metadata != 0;
    option.web = options.web != 0;
    option.looks_for_missing_parts = true;
    option.read_what_is_there = options.whole_inputs_only == 0;
    option.cancel_at_every_frame = true;
    return option;
}

// One export by either interface, from the checks to the last reply, whose state it returns. *unexpected tells whether
// an exception ended it.
NQ360_STATE export_job(const NQ360_EXPORT_OPTIONS& options, Interface interface, const Client& client,
                       bool* unexpected) {
    const bool plain = interface == Interface::kPlain;
    Paths paths = {options.lens1, options.lens2, options.output, options.output};
    const auto refuse = [&](int errnum, const char* errstr, const char* why = "") {
        const char* reply = nullptr;
        fail(paths, errstr, why, errnum, -1, &reply);
        client.send(NQ360_FAILED, reply);
        return NQ360_FAILED;
    };
    OutputPlace place(options.output, plain ? OutputPlace::kInPlace : OutputPlace::kBeside);
    try {
        if (const std::string fault = plain ? "" : fault_of(options); !fault.empty()) {
            paths = {};
            return refuse(30005, "bad option", fault.c_str());
        }
        if (!fileExists(options.lens1)) {
            return refuse(30000, "Input file1 not exiists");
        }
        if (!fileExists(options.lens2)) {
            return refuse(30000, "Input file2 not exiists");
        }
        if (!plain && !options.output) {
            return refuse(30003, "export file not writable", "there is no name to write to");
        }
        if (options.output) {
            if (!isWritable(options.output) ||
                is_own_input(options.output, {options.lens1, options.lens2, options.band, options.cancel_path})) {
                return refuse(30003, "export file not writable");
            }
            if (check_freesize(options.lens1, options.lens2, options.output) != 0) {
                return refuse(30004, "disk is full");
            }
            if (const std::string fault = place.prepare(); !fault.empty()) {
                return refuse(30003, "export file not writable", fault.c_str());
            }
            paths.written = place.path();
        }
        const char* reply = nullptr;
        int cancelled = 0;
        const int outcome = export_panorama(paths, options.band, options.cancel_path,
                                            output_option_of(options, interface), &reply, &cancelled, client);
        TextPtr reply_owner(const_cast<char*>(reply));
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
            return make_json_errstr3(paths.movie1, paths.movie2, paths.output, "an unknown error occurred", text, 39999,
                                     -1);
        });
        return NQ360_FAILED;
    }
}

}  // namespace

int _NQ360_export(const char* movie_path1, const char* movie_path2, const char* export_path, const char* band_path,
                  const char* cancel_path, OutputOption option, const char** json_out, int* cancelled_out,
                  NQ360_CALLBACK callback) {
    return export_panorama({movie_path1, movie_path2, export_path, export_path}, band_path, cancel_path,
                           std::move(option), json_out, cancelled_out, Client(callback));
}

int NQ360_export(const char* movie_path1, const char* movie_path2, const char* export_path, const char* band_path,
                 int width, int height, int angle, int y1, int u1, int v1, int y2, int u2, int v2, int audio_source,
                 const char* datetime, const char* cancel_path, NQ360_CALLBACK callback, float angle1, float angle2,
                 float start1, float start2, float end1, float end2) {
    NQ360_EXPORT_OPTIONS options;
    NQ360_export_options_init(&options);
    options.lens1 = movie_path1;
    options.lens2 = movie_path2;
    options.output = export_path;
    options.band = band_path;
    options.width = width;
    options.height = height;
    options.angle = angle;
    std::copy_n(std::array<int, 3>{y1, u1, v1}.begin(), 3, options.correct1);
    std::copy_n(std::array<int, 3>{y2, u2, v2}.begin(), 3, options.correct2);
    options.audio_source = audio_source;
    options.datetime = datetime;
    options.cancel_path = cancel_path;
    options.turn1 = angle1;
    options.turn2 = angle2;
    options.start1 = start1;
    options.start2 = start2;
    options.end1 = end1;
    options.end2 = end2;
    const Client client(callback);
    bool unexpected = false;
    export_job(options, Interface::kPlain, client, &unexpected);
    return unexpected && client.listens() ? -1 : 0;
}

int NQ360_export_with(const NQ360_EXPORT_OPTIONS* options) {
    if (!options) {
        return NQ360_FAILED;
    }
    const LogSink log(log_of(options->log, options->user));
    bool unexpected = false;
    return export_job(*options, Interface::kWithOptions, Client(options->reply, options->user), &unexpected);
}
