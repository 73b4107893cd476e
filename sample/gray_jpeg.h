// JPEG files of one component, which FFmpeg reads but does not write.
#pragma once

#include <opencv2/core.hpp>

#include "support/bytes.h"

namespace sample {

// A baseline JPEG of a CV_8UC1 picture. `quality` is the quantiser: 2 is fine, 31 coarse.
test_support::Bytes encode_gray_jpeg(const cv::Mat& picture, int quality);

}  // namespace sample
