#include "media/open_shot.h"

#include <new>
#include <stdexcept>

#include "media/lens_file.h"
#include "media/scaler.h"
#include "media/stitcher.h"
#include "projection/parallel.h"

void OpenShot::Half::go_to(double wanted) {
    if (frame && (is_still || seconds == wanted)) {
        return;
    }
    LensFile file(path.c_str());
    FramePtr found = file.frame_at(wanted);
    if (!found) {
        throw std::runtime_error("input " + std::to_string(number) + " has no picture at that time");
    }
    check_format(found.get(), number - 1);
    frame = std::move(found);
    reduced.reset();
    is_still = file.is_still();
    seconds = wanted;
}

void OpenShot::go_to(double seconds1, double seconds2) {
    const double seconds[2] = {seconds1, seconds2};
    in_parallel(2, [&](const cv::Range& lenses) {
        for (int lens = lenses.start; lens < lenses.end; ++lens) {
            halves_[lens].go_to(seconds[lens]);
        }
    });
}

const AVFrame* OpenShot::Half::reduced_by(int k) {
    if (!reduced || reduction != k) {
        reduced = reduced_frame(frame.get(), k);
        reduction = k;
    }
    return reduced.get();
}

FramePtr OpenShot::stitched(const OutputOption& option, AVColorRange range) {
    const ImageSize size = option.output_size;
    FramePtr panorama = make_frame({size.width, size.height, AV_PIX_FMT_YUV420P}, range);
    if (!panorama) {
        throw std::bad_alloc();
    }
    Stitcher stitcher(option, false);
    const int k = Stitcher::reduction_for(option);
    in_parallel(2, [&](const cv::Range& lenses) {
        for (int lens = lenses.start; lens < lenses.end; ++lens) {
            stitcher.load(lens, halves_[lens].reduced_by(k));
        }
    });
    stitcher.stitch_chroma(panorama.get());
    stitcher.stitch_luma(panorama.get());
    return panorama;
}
