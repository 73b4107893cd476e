// The stitching tables of one plane, a row at a time.
#pragma once

#include <optional>
#include <vector>

#include "projection/plane_mapper.h"

class TableRows {
  public:
    // Rows of whole tables (CV_32FC1).
    TableRows(const cv::Mat& mapx, const cv::Mat& mapy) : mapx_(mapx), mapy_(mapy), size_{mapx.cols, mapx.rows} {}

    // Rows that are made when asked for: whole tables are several times the size of the panorama, which is too
    // much to make for one.
    explicit TableRows(const PlaneMapper& mapper) : mapper_(mapper), size_(mapper.size()) {}

    ImageSize size() const { return size_; }

    struct Row {
        const float* x;
        const float* y;
    };

    // Valid until `scratch`, which the caller keeps per thread, is used again.
    Row row(int y, std::vector<float>* scratch) const {
        if (!mapper_) {
            return {mapx_.ptr<float>(y), mapy_.ptr<float>(y)};
        }
        const auto columns = static_cast<size_t>(size_.width);
        scratch->resize(2 * columns);
        mapper_->map_row(y, scratch->data(), scratch->data() + columns);
        return {scratch->data(), scratch->data() + columns};
    }

  private:
    cv::Mat mapx_;
    cv::Mat mapy_;
    std::optional<PlaneMapper> mapper_;
    ImageSize size_;
};
