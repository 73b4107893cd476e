#include "api/export.h"

#include <algorithm>
#include <array>
#include <string>

#include "api/client.h"
#include "api/inputs.h"
#include "api/options.h"
#include "api/panorama_metadata.h"
#include "api/reply.h"
#include "api/share_texts.h"
#include "api/unexpected.h"
#include "base/files.h"
#include "base/log.h"
#include "base/output_place.h"
#include "base/progress.h"
#include "base/text_owner.h"
#include "media/libavif.h"
#include "metadata/jpeg.h"
#include "metadata/keep.h"
#include "metadata/spherical.h"

namespace {

// Which of the two interfaces a job came by: the plain one writes in place and reads whole inputs alone.
enum class Interface { kPlain, kWithOptions };

int64_t total_frames(libavIF* media, const OutputOption& option) {
    const int64_t count1 = media->duration_frame_count(0, option.start1, option.end1);
    const int64_t count2 = media->duration_frame_count(1, option.start2, option.end2);
    if (count1 == 0) {
        return count2;
    }
    return count2 == 0 ? count1 : std::min(count1, count2);
}

// The panorama's own metadata, so that viewers show it as one, and with it what lens 1's file tells of the shot if that
// is to be kept.
void write_metadata(const Paths& paths, bool picture, const OutputOption& option) {
    const ImageSize size = option.output_size;
    const char* datetime = option.datetime ? option.datetime : "";
    if (!picture) {
        const bool keep = option.keep_metadata;
        write_metadata_of_movie(
            paths.written, size, datetime,
            keep ? std::optional(movie_texts(read_kept_metadata(paths.movie1), datetime)) : std::nullopt, option.web);
    } else if (option.keep_metadata) {
        write_picture_metadata(paths.written, size.width, size.height, read_kept_metadata(paths.movie1), datetime);
    } else {
        const TextPtr text(TALUMO360ViewerMetadata(true, size.width, size.height, datetime));
        _jpeg file(paths.written, true);
        file.wtire_xmp_data(text.get());
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
    const int64_t shares = std::max(option->share.count, 1);
    const int64_t total = (total_frames(&media, *option) + shares - 1) / shares;
    option->update_frame = nq360_update_frame(total);
    if (option->share.count > 0 && option->keep_metadata) {
        add_metadata(movie_texts(read_kept_metadata(paths.movie1), option->datetime), &option->share);
    }
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
    if (option->share.count == 0) {
        write_metadata(paths, both_pictures, *option);
    }
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
    if (analyze_inputs(paths, &input1, &input2, json_out) != 0) {
        return -1;
    }
    prepare_projection(band_path, input1, input2, &option);
    return write_panorama(paths, cancel_path, input1.is_picture && input2.is_picture, &option, json_out, cancelled_out,
                          client);
}

OutputOption output_option_of(const NQ360_EXPORT_OPTIONS& options, Interface interface) {
    OutputOption option = look_of(options);
    option.start1 = static_cast<float>(options.start1);
    option.start2 = static_cast<float>(options.start2);
    option.end1 = static_cast<float>(options.end1);
    option.end2 = static_cast<float>(options.end2);
    option.audio_source = options.audio_source;
    option.datetime = options.datetime;
    if (interface == Interface::kPlain) {
        return option;
    }
    option.usual_size = options.width == 0 && options.height == 0;
    option.bit_rate = options.bit_rate;
    option.sound_aac = options.sound_codec == NQ360_SOUND_AAC;
    option.keep_metadata = options.keep_metadata != 0;
    option.web = options.web != 0;
    option.workers = options.workers;
    if (options.parts > 0) {
        option.workers = options.workers == 0 ? 1 : options.workers;
        option.share.number = options.part;
        option.share.count = options.parts;
        add_options(options, &option.share);
    }
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
        answer_unexpected(client, kBareExportReply, [&](const char* text) {
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
