#include "api/inputs.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "api/reply.h"
#include "base/files.h"
#include "base/log.h"
#include "base/text.h"
#include "base/thrown_text.h"
#include "media/loading.h"
#include "projection/angles.h"
#include "projection/lens_circle.h"

namespace {

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

void check_panorama(ImageSize size) {
    if (size.width < 2 || size.height < 2 || size.width > kMostRemapSide || size.height > kMostRemapSide) {
        throw std::runtime_error("the panorama's sides must be 2 to " + std::to_string(kMostRemapSide) +
                                 " pixels, not " + std::to_string(size.width) + " x " + std::to_string(size.height));
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

}  // namespace

int fail(const Paths& paths, const char* errstr, const char* api_errstr, int errnum, int api_errnum,
         const char** json_out) {
    *json_out = make_json_errstr3(paths.movie1, paths.movie2, paths.output, errstr, on_one_line(api_errstr).c_str(),
                                  errnum, api_errnum);
    return -1;
}

int analyze_inputs(const Paths& paths, AnalyzeResult* input1, AnalyzeResult* input2, const char** json_out) {
    int outcome = analyze_input(paths, paths.movie1, "Analyze Error InputFile1", input1, json_out);
    if (outcome == 0) {
        outcome = analyze_input(paths, paths.movie2, "Analyze Error InputFile2", input2, json_out);
    }
    if (outcome != 0) {
        return outcome;
    }
    nq360_log(1, "[_NQ360_export_analyze] frame_count1:%ld frame_count2:%ld", static_cast<long>(input1->frame_count),
              static_cast<long>(input2->frame_count));
    return check_sizes(paths, *input1, *input2, json_out);
}

// What the picture functions would assert or cv::remap refuse, in words for the person who asked.
void check_lenses(ImageSize lens, int bandheight) {
    if (projection_radius(lens.width) >= lens.height / 2.0) {
        throw std::runtime_error("the lens pictures are too small for the lens circle: " + std::to_string(lens.width) +
                                 " x " + std::to_string(lens.height));
    }
    const int64_t stack = 2 * static_cast<int64_t>(lens.height) + bandheight;
    if (stack > kMostRemapSide) {
        throw std::runtime_error("the lens pictures and the band picture are " + std::to_string(stack) +
                                 " rows high, more than the " + std::to_string(kMostRemapSide) +
                                 " that can be stitched; take a flatter band picture");
    }
}

OutputOption look_of(const NQ360_EXPORT_OPTIONS& options) {
    OutputOption option;
    option.output_size = {options.width, options.height};
    option.rotation = {radians(options.turn1), radians(options.turn2), 0, 0, radians(options.angle)};
    option.view = {radians(options.yaw), radians(options.pitch), radians(options.roll)};
    option.correct1 = create_linnercorrectmap(options.correct1[0], options.correct1[1], options.correct1[2]);
    option.correct2 = create_linnercorrectmap(options.correct2[0], options.correct2[1], options.correct2[2]);
    std::copy_n(options.gain1, 3, option.gains[0].begin());
    std::copy_n(options.gain2, 3, option.gains[1].begin());
    option.feather = radians(options.feather);
    option.filter = options.filter != 0;
    option.quality = options.quality;
    return option;
}

void prepare_projection(const char* band_path, const AnalyzeResult& input1, const AnalyzeResult& input2,
                        OutputOption* option) {
    const ImageSize lens = {input1.width, input1.height};
    if (option->usual_size) {
        option->output_size = usual_size(lens.width, input1.frame_count == 0 && input2.frame_count == 0);
    }
    option->rotation.frame1angle -= orientation_turn(input1.orientation);
    option->rotation.frame2angle += orientation_turn(input2.orientation);
    option->radius = projection_radius(lens.width);
    check_panorama(option->output_size);
    check_lenses(lens, 0);
    load_band(band_path, lens.width, option);
    check_lenses(lens, option->bandheight);
    option->transmap = EquidistantTransMap();
    option->transmap.equsize = option->output_size;
    option->transmap.projsize = lens;
    option->transmap.bandheight = option->bandheight;
}
