#include "sample/still.h"

#include "sample/frame_code.h"
#include "sample/lens_picture.h"
#include "sample/scene.h"
#include "sample/sphere.h"
#include "support/temp_dir.h"

namespace sample {
namespace {

using namespace test_support;

Bytes metadata_segments(const StillOptions& options) {
    Bytes segments;
    if (options.exif) {
        segments += exif_segment(exif_block(options.tags));
    }
    if (!options.xmp_path.empty()) {
        segments += xmp_segment(to_string(read_file(options.xmp_path)));
    }
    return segments;
}

Picture paint_lens(const StillOptions& options, const Sphere& sphere, int number) {
    const LensPainter painter(lens_of(options, number), options.angle * kDegree, chroma_named(options.chroma),
                              sphere.width(), Lookup::fine);
    Picture picture = painter.paint(sphere, 0, number == 2 ? options.difference : std::array<int, 3>{});
    Grain(options.grain, options.seed + static_cast<uint64_t>(number), picture.planes[0].size())
        .add_to(picture.planes[0]);
    if (options.code >= 0) {
        FrameCodePainter(options.size)
            .paint(picture.planes[0].data, static_cast<std::ptrdiff_t>(picture.planes[0].step), {options.code, number},
                   255, 0);
    }
    return picture;
}

}  // namespace

void write_stills(const StillOptions& options) {
    const Sphere sphere(*scene_named(options.scene), sphere_width(options.size), false);
    const Bytes segments = metadata_segments(options);
    for (int number = 1; number <= 2; ++number) {
        const Sphere seen = number == 2 ? sphere.brighter(options.factor) : sphere;
        const Bytes jpeg = encode_jpeg(paint_lens(options, seen, number), options.quality);
        write_file(options.outputs[static_cast<size_t>(number - 1)], with_segments(jpeg, segments));
    }
}

}  // namespace sample
