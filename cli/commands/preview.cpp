#include "commands/preview.h"

#include <algorithm>

#include "jobs/errors.h"
#include "jobs/jpeg_file.h"
#include "jobs/lens_pair.h"
#include "media/loading.h"
#include "terminal/console.h"
#include "terminal/interrupt.h"

namespace {

constexpr Size kUsualSize = {1024, 512};
constexpr int kMostSide = 8192;
constexpr int kMostStackedRows = 32766;  // lens pictures and band; what the stitcher can address

void check_size(Size size) {
    if (size.width % 2 != 0 || size.height % 2 != 0 || std::max(size.width, size.height) > kMostSide) {
        throw UsageError("--size: a preview has even sides of at most " + std::to_string(kMostSide) + " pixels");
    }
}

ImageFrame load_band(const std::string& path, const cv::Mat& luma) {
    ImageFrame band = imageframe_from_bandfile(path.c_str(), luma.cols, FRAME_TYPE_YUV420);
    if (band.frameType == FRAME_TYPE_NOTLOAD || band.YUVMats.size() != 3) {
        throw CommandError(printable(path) + ": cannot be read as a band picture");
    }
    if (2 * luma.rows + band.YUVMats[0].rows > kMostStackedRows) {
        throw CommandError(printable(path) + ": too high for its width; take a flatter band picture");
    }
    return band;
}

}  // namespace

int write_preview(const PairOptions& options, const ExportJob& job, std::optional<Size> size) {
    const Size chosen = size.value_or(kUsualSize);
    check_size(chosen);
    LensPair pair = read_pair(options);
    for (int i = 0; i < 2; ++i) {
        correct(&pair.pictures[i], job.corrections[i]);
    }
    const ImageFrame band = job.band ? load_band(*job.band, pair.pictures[0].YUVMats[0]) : ImageFrame();
    const ImageFrame panorama = stitched(pair, chosen, job.tilt, band);
    if (interrupted()) {
        return kCancelled;
    }
    write_jpeg(job.output, panorama, !pair.is_movie);
    if (!console().quiet()) {
        console().print(printable(job.output) + ": preview, " + std::to_string(chosen.width) + "x" +
                        std::to_string(chosen.height) + "\n");
    }
    return kDone;
}
