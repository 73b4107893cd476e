#include "api/analyze.h"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "api/client.h"
#include "api/options.h"
#include "api/reply.h"
#include "api/unexpected.h"
#include "base/files.h"
#include "base/log.h"
#include "base/text.h"
#include "base/text_owner.h"
#include "base/thrown_text.h"
#include "media/libavif.h"
#include "media/whole.h"
#include "metadata/capture_time.h"
#include "metadata/exif.h"
#include "metadata/jpeg.h"
#include "metadata/jpeg_segments.h"
#include "metadata/mov.h"
#include "metadata/spherical.h"
#include "nq360.h"

namespace {

// The reply of a call that is out of memory.
constexpr char kBareReply[] =
    R"({"errnum":"19999","errstr":"an unknown error occurred","api_errnum":-1,"api_errstr":"std::bad_alloc",)"
    R"("movie_path":""})";

struct Request {
    const char* input_path;
    const char* thumbnail_path;
    int thumbnail_width;
    int write_flag;
    bool tells_unread = false;  // and reads other cameras' metadata: what the plain interface does not know
    bool quick = false;         // decodes a JPEG no further than its thumbnail needs
};

// What a file should hold and could not be read, as a key of its reply.
class Unread {
  public:
    void note(bool is_unread, const char* name) {
        if (is_unread) {
            names_ += (names_.empty() ? "\"" : ",\"") + std::string(name) + "\"";
        }
    }
    // The reply with the key at its end; frees `reply`.
    char* added_to(char* reply) const { return with_key(reply, "unread", "[" + names_ + "]"); }

  private:
    std::string names_;
};

ExifDialect dialect_of(const Request& request) {
    return request.tells_unread ? ExifDialect::kAny : ExifDialect::kCamera;
}

// The stitching software's name and date out of a file's metadata.
struct ViewerTexts {
    TextPtr software;
    TextPtr date;
};

// isTALUMO360Viewer, with owned texts.
int recognise_viewer(char* xmp, ViewerTexts* texts) {
    char* software = nullptr;
    char* date = nullptr;
    const int viewer = isTALUMO360Viewer(xmp, &software, &date);
    texts->software.reset(software);
    texts->date.reset(date);
    return viewer;
}

// The date of a panorama as the replies have it; the plain interface tells it as it stands in the file.
std::string date_of(const Request& request, const ViewerTexts& texts) {
    const std::string date = texts.date ? texts.date.get() : "";
    return request.tells_unread ? exif_date_of(date) : date;
}

std::string extension_of(const char* path) {
    std::vector<char> extension(path ? std::strlen(path) + 1 : 1);
    get_extension(path, extension.data());
    return extension.data();
}

int reply_unknown(const char* tag, const char* input_path, const char** json_out) {
    const std::string text = thrown_text();
    *json_out = make_json_errstr1(input_path, "an unknown error occurred", text.c_str(), 19999, -1);
    nq360_log(3, "[%s] an unknown error occurred errnum:%d error:%s:", tag, -1, text.c_str());
    return -1;
}

int reply_failure(const char* tag, const char* step, const Request& request, libavIF* media, const char* errstr,
                  int errnum, const char** json_out) {
    *json_out = make_json_errstr1(request.input_path, errstr, on_one_line(media->error_text).c_str(), errnum,
                                  media->error_code);
    media->close_input_file();
    nq360_log(3, "[%s] %s error errnum:%d error:%s:", tag, step, media->error_code, media->error_text);
    return -1;
}

int reply_not_opened(const char* tag, const Request& request, libavIF* media, const char** json_out) {
    return reply_failure(tag, "open_inputfile", request, media, "Could Not open file", 10001, json_out);
}

int reply_no_thumbnail(const char* tag, const Request& request, libavIF* media, const char** json_out) {
    return reply_failure(tag, "write_tuhmbnail", request, media, "Could Not Write Thumbnail", 19999, json_out);
}

void fill_result(const libavIF& media, const _exif& exif, bool is_target, bool is_picture, AnalyzeResult* result) {
    result->width = media.width;
    result->height = media.height;
    result->duration = media.duration;
    result->frame_count = media.frame_count;
    result->maker = exif.maker;
    result->model = exif.model;
    result->orientation = exif.orientation;
    result->capture_mode = exif.capture_mode;
    result->multi_capture = exif.multi_capture;
    result->camera_orientation = exif.camera_orientation;
    result->isTarget = is_target;
    result->is_picture = is_picture;
}

constexpr double kStillSeconds = 0.04;  // as FFmpeg has it of every picture

// Opens the picture or, where that is all that is wanted, takes what its segments tell; FFmpeg's code.
int open_picture(const Request& request, bool wants_thumbnail, const JpegSegments& segments, libavIF* media) {
    if (!request.quick || wants_thumbnail || segments.width == 0) {
        return media->open_input_file(0);
    }
    media->width = segments.width;
    media->height = segments.height;
    media->duration = kStillSeconds;
    return 0;
}

int analyze_jpeg(const Request& request, const char** json_out, AnalyzeResult* result) {
    static const char* const kTag = "NQ360_analyze_jpeg";
    libavIF media(request.input_path);
    if (!isRegularFile(request.input_path)) {
        // A pipe or a device would block the reader of the segments.
        media.open_input_file(0);
        return reply_not_opened(kTag, request, &media, json_out);
    }
    _jpeg file(request.input_path, false);
    uint8_t* block = nullptr;
    char* xmp = nullptr;
    if (file.exif_data(&block) != 0) {
        nq360_log(1, "[NQ360_analyze_jpeg] exif not found");
    }
    if (file.xml_data(&xmp) != 0) {
        nq360_log(1, "[NQ360_analyze_jpeg] xmp not found");
    }
    file.close_stream();
    _exif exif(block, file.exif_length, dialect_of(request));
    ViewerTexts texts;
    const int viewer = recognise_viewer(xmp, &texts);
    const bool target = exif.isTarget() || viewer == 0;
    const bool wants_thumbnail = request.thumbnail_path && (request.write_flag != 0 || target);
    const JpegSegments segments = request.tells_unread ? read_jpeg_segments(request.input_path) : JpegSegments();

    if (open_picture(request, wants_thumbnail, segments, &media) != 0) {
        return reply_not_opened(kTag, request, &media, json_out);
    }
    media.looks_for_missing_parts = request.tells_unread;
    media.quick_thumbnail = request.quick;
    if (wants_thumbnail &&
        media.write_tuhmbnail(request.thumbnail_path, request.thumbnail_width, exif.orientation) != 0) {
        return reply_no_thumbnail(kTag, request, &media, json_out);
    }
    if (request.tells_unread && !request.quick && !wants_thumbnail) {
        media.look_for_missing_rows();
    }
    *json_out = make_json_result1(request.input_path, request.thumbnail_path, &exif, &media, texts.software.get(),
                                  date_of(request, texts).c_str(), target, wants_thumbnail, "JPEG");
    if (request.tells_unread) {
        Unread unread;
        unread.note(block && !exif.is_tiff, "exif");
        // FFmpeg opens what is no JPEG at all, and finds no picture in it.
        unread.note(media.width == 0 || !media.missing[0].empty() || segments.is_cut_off, "picture");
        *json_out = unread.added_to(const_cast<char*>(*json_out));
    }
    fill_result(media, exif, target, true, result);
    return 0;
}

int analyze_movie(const Request& request, const char** json_out, AnalyzeResult* result) {
    static const char* const kTag = "NQ360_analyze_movie";
    libavIF media(request.input_path);
    const auto not_opened = [&] {
        nq360_log(1, "[NQ360_analyze_movie] open_inputfile error");
        return reply_not_opened(kTag, request, &media, json_out);
    };
    if (!isRegularFile(request.input_path)) {
        // A pipe or a device would block the reader of the atoms.
        media.open_input_file(0);
        return not_opened();
    }
    _mov file(request.input_path, false);
    uint8_t* block = nullptr;
    char* xmp = nullptr;
    file.exif_data(&block);
    file.xml_data(&xmp);
    file.close_stream();
    _exif exif(block, file.exif_length, dialect_of(request));
    ViewerTexts texts;
    const int viewer = recognise_viewer(xmp, &texts);
    nq360_log(1, "[NQ360_analyze_movie] isTALUMO360 %d", viewer);
    bool target = exif.isTarget() || viewer == 0;
    nq360_log(1, "[NQ360_analyze_movie] isTarget %d", target);

    if (media.open_input_file(0) != 0) {
        return not_opened();
    }
    // The camera records PCM: a movie with AAC has been through other software, whatever its metadata says.
    target = target && media.audio_codec_id != AV_CODEC_ID_AAC;
    nq360_log(1, "[NQ360_analyze_movie] codec_id:%d:", media.audio_codec_id);
    nq360_log(1, "[NQ360_analyze_movie] isTarget__:%d:", target);
    nq360_log(1, "[NQ360_analyze_movie] thumbnail_path:%s:", request.thumbnail_path ? request.thumbnail_path : "");
    nq360_log(1, "[NQ360_analyze_movie] writeFlag:%d:", request.write_flag);
    media.looks_for_missing_parts = request.tells_unread;
    media.quick_thumbnail = request.quick;
    const bool wants_thumbnail = request.thumbnail_path && (request.write_flag != 0 || target);
    if (wants_thumbnail &&
        media.write_tuhmbnail(request.thumbnail_path, request.thumbnail_width, exif.orientation) != 0) {
        return reply_no_thumbnail(kTag, request, &media, json_out);
    }
    *json_out = make_json_result1(request.input_path, request.thumbnail_path, &exif, &media, texts.software.get(),
                                  date_of(request, texts).c_str(), target, wants_thumbnail, "MOVIE");
    if (request.tells_unread) {
        Unread unread;
        unread.note(block && !exif.is_mkri && !exif.is_tiff, "exif");
        const auto breaks_off = [&](int stream) { return share_there(media.input_format[0], stream) < 1; };
        unread.note(breaks_off(media.video_stream_index[0]) || breaks_off(media.audio_stream_index[0]), "movie");
        *json_out = unread.added_to(const_cast<char*>(*json_out));
    }
    fill_result(media, exif, target, false, result);
    return 0;
}

using Workflow = int (*)(const Request&, const char**, AnalyzeResult*);

// A workflow with its log lines and the answer to what is thrown in it.
int run_workflow(const char* tag, Workflow workflow, const Request& request, const char** json_out,
                 AnalyzeResult* result) {
    nq360_log(1, "[%s] start:%s:", tag, request.input_path);
    *json_out = nullptr;
    try {
        const int outcome = workflow(request, json_out, result);
        if (outcome == 0) {
            nq360_log(1, "[%s] end:%s:", tag, request.input_path);
        }
        return outcome;
    } catch (...) {
        return reply_unknown(tag, request.input_path, json_out);
    }
}

// The entry's checks and the workflow; 0 or -1 with the reply in *json_out. *thumbnail_is_ours is set once nothing
// speaks against writing it: only then may a failure remove it.
int analyze(const Request& request, bool* thumbnail_is_ours, const char** json_out) {
    const auto fail = [&](int errnum, const char* errstr) {
        *json_out = make_json_errstr1(request.input_path, errstr, "", errnum, -1);
        return -1;
    };
    if (!fileExists(request.input_path)) {
        return fail(10000, "Input file not exiists");
    }
    if (request.thumbnail_path) {
        if (!isWritable(request.thumbnail_path) || isSameFile(request.input_path, request.thumbnail_path)) {
            return fail(10003, "tumbnail not writable");
        }
        if (check_freesize(nullptr, nullptr, request.thumbnail_path) != 0) {
            return fail(10004, "disk is full");
        }
        *thumbnail_is_ours = true;
    }
    const std::string extension = extension_of(request.input_path);
    AnalyzeResult result;
    int outcome = -1;
    if (isJpeg(extension.c_str())) {
        outcome = run_workflow("NQ360_analyze_jpeg", analyze_jpeg, request, json_out, &result);
    } else if (isMovie(extension.c_str())) {
        outcome = run_workflow("NQ360_analyze_movie", analyze_movie, request, json_out, &result);
    } else {
        fail(10001, "Not Movie & JPEG");
    }
    if (outcome != 0) {
        // No half-written thumbnail survives. An earlier one goes too, deliberately: it no longer tells the truth.
        remove_file(request.thumbnail_path);
    }
    return outcome;
}

}  // namespace

void init_analyze_result(AnalyzeResult* result) {
    *result = AnalyzeResult();
}

int _NQ360_analyze_jpeg(const char* input_path, const char* thumbnail_path, int thumbnail_width, int writeFlag,
                        const char** json_out, AnalyzeResult* result) {
    const Request request{input_path, thumbnail_path, thumbnail_width, writeFlag};
    return run_workflow("NQ360_analyze_jpeg", analyze_jpeg, request, json_out, result);
}

int _NQ360_analyze_movie(const char* input_path, const char* thumbnail_path, int thumbnail_width, int writeFlag,
                         const char** json_out, AnalyzeResult* result) {
    const Request request{input_path, thumbnail_path, thumbnail_width, writeFlag};
    return run_workflow("NQ360_analyze_movie", analyze_movie, request, json_out, result);
}

int _NQ360_export_analyze(const char* input_path, AnalyzeResult* result) {
    const std::string extension = extension_of(input_path);
    const char* json = nullptr;
    int outcome = -1;
    if (isJpeg(extension.c_str())) {
        outcome = _NQ360_analyze_jpeg(input_path, nullptr, 0, 0, &json, result);
    } else if (isMovie(extension.c_str())) {
        outcome = _NQ360_analyze_movie(input_path, nullptr, 0, 0, &json, result);
    }
    const TextPtr unread(const_cast<char*>(json));
    return outcome;
}

namespace {

// One analysis, to its reply, whose state it returns. *unexpected tells whether an exception ended it.
NQ360_STATE analyze_job(const Request& request, const std::function<std::string()>& fault_of_options,
                        const Client& client, bool* unexpected) {
    bool thumbnail_is_ours = false;
    try {
        const char* reply = nullptr;
        if (const std::string fault = fault_of_options ? fault_of_options() : ""; !fault.empty()) {
            client.send(NQ360_FAILED, make_json_errstr1(nullptr, "bad option", fault.c_str(), 10005, -1));
            return NQ360_FAILED;
        }
        const int outcome = analyze(request, &thumbnail_is_ours, &reply);
        const NQ360_STATE state = outcome == 0 ? NQ360_FINISHED : NQ360_FAILED;
        client.send(state, reply);
        return state;
    } catch (...) {
        *unexpected = true;
        if (thumbnail_is_ours) {
            remove_file(request.thumbnail_path);
        }
        answer_unexpected(client, kBareReply, [&](const char* text) {
            return make_json_errstr1(request.input_path, "an unknown error occurred", text, 19999, -1);
        });
        return NQ360_FAILED;
    }
}

}  // namespace

int NQ360_analyze_image(const char* input_path, const char* thumbnail_path, int thumbnail_width, int writeFlag,
                        NQ360_CALLBACK callback) {
    const Client client(callback);
    bool unexpected = false;
    analyze_job({input_path, thumbnail_path, thumbnail_width, writeFlag}, nullptr, client, &unexpected);
    return unexpected && client.listens() ? -1 : 0;
}

int NQ360_analyze_with(const NQ360_ANALYZE_OPTIONS* options) {
    if (!options) {
        return NQ360_FAILED;
    }
    const LogSink log(log_of(options->log, options->user));
    const Client client(options->reply, options->user);
    bool unexpected = false;
    return analyze_job(
        {options->input, options->thumbnail, options->thumbnail_width, options->thumbnail_always, true,
         options->quick != 0},
        [&] { return fault_of(*options); }, client, &unexpected);
}
