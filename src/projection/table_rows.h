// The stitching tables of one plane, a row at a time.
#pragma once

#include <optional>
#include <vector>

#include "projection/plane_mapper.h"
#include "projection/reduction.h"

class TableRows {
  public:
    // Rows of whole tables (CV_32FC1).
    TableRows(const cv::Mat& mapx, const cv::Mat& mapy) : mapx_(mapx), mapy_(mapy), size_{mapx.cols, mapx.rows} {}

    // Rows that are made when asked for: whole tables are several times the size of the panorama, which is too
    // much to make for one. `reduction`: of the stack, if it is to be reduced.
    explicit TableRows(const PlaneMapper& mapper, const std::optional<StackReduction>& reduction = {})
        : mapper_(mapper), reduction_(reduction), size_(mapper.size()) {}

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
        float* const row_x = scratch->data();
        float* const row_y = row_x + columns;
        mapper_->map_row(y, row_x, row_y);
        move(row_x, row_y, size_.width);
        return {row_x, row_y};
    }

    // ---- For rows that are made ----

    bool are_made() const { return mapper_.has_value(); }

    // As PlaneMapper has them, in the stack that the rows are for.
    std::vector<ColumnSpan> seam_spans(int y, double width) const { return mapper_->seam_spans(y, width); }
    void other_lens(int row, ColumnSpan span, double width, const float* sides, float* x, float* y,
                    float* shares) const {
        mapper_->map_other_lens(row, span, width, sides, x, y, shares);
        move(x, y, span.end - span.first);
    }
    void lens_position(int lens, double phi, double psi, float* x, float* y) const {
        double u, v;
        uvpoint_of_lens(&u, &v, lens, mapper_->sources(), phi, psi);
        *x = static_cast<float>(u);
        *y = static_cast<float>(v);
        move(x, y, 1);
    }
    // How far past the seam both lenses lie wholly in their pictures, radians.
    double overlap() const { return mapper_->overlap(reduction_ ? (reduction_->factor() - 1) / 2.0 : 0); }
    // Of each lens in the stack.
    float lens_rows() const {
        const int rows = mapper_->sources().size.height / (reduction_ ? reduction_->factor() : 1);
        return static_cast<float>(rows);
    }

  private:
    void move(float* x, float* y, int count) const {
        if (reduction_) {
            reduction_->move_positions(x, y, count);
        }
    }

    cv::Mat mapx_;
    cv::Mat mapy_;
    std::optional<PlaneMapper> mapper_;
    std::optional<StackReduction> reduction_;
    ImageSize size_;
};
