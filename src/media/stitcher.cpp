#include "media/stitcher.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "media/chroma_format.h"
#include "media/full_range.h"
#include "media/scaler.h"
#include "projection/angles.h"
#include "projection/reduction.h"

namespace {

std::string size_text(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

// The decoder may deliver another size than the container announced.
void check_size(const AVFrame* frame, ImageSize expected, int lens) {
    if (frame->width != expected.width || frame->height != expected.height) {
        throw std::runtime_error("input " + std::to_string(lens + 1) + " has a frame of " +
                                 size_text(frame->width, frame->height) + " where " +
                                 size_text(expected.width, expected.height) + " was expected");
    }
}

// The table of a plane's correction, null where the plane stays as it is.
const uint8_t* correction_of(const YuvCorrectMap& map, int plane) {
    switch (plane) {
        case 0:
            return map.yenabled ? map.ytable : nullptr;
        case 1:
            return map.uenabled ? map.utable : nullptr;
        default:
            return map.venabled ? map.vtable : nullptr;
    }
}

void copy_plane(const uint8_t* source, int stride, const uint8_t* table, cv::Mat* target) {
    for (int row = 0; row < target->rows; ++row) {
        const uint8_t* from = source + static_cast<ptrdiff_t>(row) * stride;
        uint8_t* to = target->ptr(row);
        if (!table) {
            std::memcpy(to, from, static_cast<size_t>(target->cols));
            continue;
        }
        for (int column = 0; column < target->cols; ++column) {
            to[column] = table[from[column]];
        }
    }
}

// Rows or columns of a plane: floor halves for the pictures, ceil halves for FFmpeg's frames.
int halved(int side, int plane) {
    return plane == 0 ? side : side / 2;
}
int halved_up(int side, int plane) {
    return plane == 0 ? side : (side + 1) / 2;
}

void repeat_last(cv::Mat plane, int columns, int rows) {
    if (columns < plane.cols) {
        plane.col(columns - 1).copyTo(plane.col(columns));
    }
    if (rows < plane.rows) {
        plane.row(rows - 1).copyTo(plane.row(rows));
    }
}

// A plane of FFmpeg's frame, with the last column and row that ours may not have.
cv::Mat whole_plane(AVFrame* frame, int plane) {
    return cv::Mat(halved_up(frame->height, plane), halved_up(frame->width, plane), CV_8UC1, frame->data[plane],
                   static_cast<size_t>(frame->linesize[plane]));
}

// How much of the lens pictures' chroma stands in a pixel of reduced 4:2:0.
int reduced_rows(const AVFrame* frame, int plane, int k) {
    return plane > 0 && is_422(frame) ? 2 * k : k;
}

void reduce_into(const AVFrame* frame, int k, AVFrame* target) {
    for (int plane = 0; plane < 3; ++plane) {
        cv::Mat pixels = whole_plane(target, plane);
        reduce_plane(frame->data[plane], frame->linesize[plane], k, reduced_rows(frame, plane, k), &pixels);
    }
}

// Of the size and range that a frame has when it is reduced.
FramePtr new_reduced(const AVFrame* frame, int k) {
    const bool full_range = frame->format == AV_PIX_FMT_YUVJ420P || frame->format == AV_PIX_FMT_YUVJ422P;
    FramePtr reduced =
        make_frame({frame->width / k, frame->height / k, full_range ? AV_PIX_FMT_YUVJ420P : AV_PIX_FMT_YUV420P},
                   frame->color_range);
    return reduced ? std::move(reduced) : throw std::bad_alloc();
}

// Whether planes of U and V can be reduced as those of Y.
bool divides(int k, ImageSize size) {
    return size.width % (2 * k) == 0 && size.height % (2 * k) == 0;
}

}  // namespace

void check_format(const AVFrame* frame, int lens) {
    if (!is_420(frame) && !is_422(frame)) {
        throw std::runtime_error("input " + std::to_string(lens + 1) +
                                 " is not 4:2:0 or 4:2:2 with 8 bits, the only formats that can be stitched");
    }
}

FramePtr reduced_frame(const AVFrame* frame, int k) {
    if (k == 1 || !divides(k, {frame->width, frame->height}) || (!is_420(frame) && !is_422(frame))) {
        FramePtr same(av_frame_clone(frame));
        return same ? std::move(same) : throw std::bad_alloc();
    }
    FramePtr reduced = new_reduced(frame, k);
    reduce_into(frame, k, reduced.get());
    return reduced;
}

namespace {

// How many pixels of the lens pictures there are for one of the panorama, along a line.
double scale_ratio(const OutputOption& option) {
    const ImageSize panorama = option.transmap.equsize;
    const double lens_scale = option.radius / (kPi / 2);  // pixels per radian
    return lens_scale / std::max(panorama.width / (2 * kPi), panorama.height / kPi);
}

}  // namespace

// The greatest power of two that leaves the lenses as fine as the panorama. Whole tables are made for whole lens
// pictures.
int Stitcher::reduction_for(const OutputOption& option) {
    const EquidistantTransMap& map = option.transmap;
    if (!option.filter || !map.ymapx.empty()) {
        return 1;
    }
    int k = 1;
    while (k < kMostReduction && divides(2 * k, map.projsize) && 2 * k <= scale_ratio(option)) {
        k *= 2;
    }
    return k;
}

namespace {

cv::Mat band_of(const OutputOption& option, int plane) {
    const bool has_band = option.band.frameType != FRAME_TYPE_NOTLOAD;
    return has_band ? option.band.YUVMats[static_cast<size_t>(plane)] : cv::Mat();
}

std::optional<StackReduction> reduction_of(const OutputOption& option, int plane) {
    const int k = Stitcher::reduction_for(option);
    const ImageSize lens = option.transmap.projsize;
    if (k == 1) {
        return {};
    }
    return StackReduction(k, {halved(lens.width, plane), halved(lens.height, plane)}, band_of(option, plane));
}

// A filtered panorama is one of the lenses' own scale reduced by area, so that it lies in its place when both are shown
// in one size: how far the middle of its pixels lies from where the first of those that they are the mean of does.
double offset_of(const OutputOption& option) {
    return Stitcher::reduction_for(option) == 1 ? 0 : 0.5 - 0.5 / scale_ratio(option);
}

TableRows rows_of(const OutputOption& option, int plane) {
    const EquidistantTransMap& map = option.transmap;
    const bool luma = plane == 0;
    if (!map.ymapx.empty()) {
        return luma ? TableRows(map.ymapx, map.ymapy) : TableRows(map.uvmapx, map.uvmapy);
    }
    const auto mapper = luma ? luma_mapper : chroma_mapper;
    return TableRows(mapper(map.equsize, map.projsize, option.radius, option.bandheight, option.rotation, option.view,
                            offset_of(option)),
                     reduction_of(option, plane));
}

// Where the planes of the lenses, which are not set, and of the band lie above each other.
FramedPlane new_stack(const OutputOption& option, int plane) {
    const std::optional<StackReduction> reduction = reduction_of(option, plane);
    const cv::Mat band = reduction ? reduction->band() : band_of(option, plane);
    const ImageSize lens = option.transmap.projsize;
    const int k = Stitcher::reduction_for(option);
    const int lens_rows = 2 * halved(lens.height, plane) / k;
    FramedPlane stack(lens_rows + band.rows, halved(lens.width, plane) / k);
    if (!band.empty()) {
        band.copyTo(stack.pixels().rowRange(lens_rows, lens_rows + band.rows));
    }
    return stack;
}

}  // namespace

StitchTables::StitchTables(const OutputOption& option, bool many_pairs)
    : luma_rows(rows_of(option, 0)), chroma_rows(rows_of(option, 1)), are_kept(many_pairs) {
    if (many_pairs) {
        luma = SampleTable(luma_rows, new_stack(option, 0));
        chroma = SampleTable(chroma_rows, new_stack(option, 1));
    }
}

Stitcher::Stitcher(const OutputOption& option, std::shared_ptr<const StitchTables> tables)
    : option_(option), tables_(std::move(tables)), reduction_(reduction_for(option)) {
    for (int plane = 0; plane < 3; ++plane) {
        stacks_.push_back(new_stack(option, plane));
    }
}

// Full-range 4:2:2 is read as limited range too, deliberately: so both lenses are treated alike whatever their
// format is called.
const AVFrame* Stitcher::as_420(Lens* lens, const AVFrame* frame) const {
    if (!is_422(frame)) {
        return frame;
    }
    const ImageSize target = option_.transmap.projsize;
    if (!lens->converted) {
        lens->converted = make_frame({target.width, target.height, AV_PIX_FMT_YUV420P});
        if (!lens->converted) {
            throw std::bad_alloc();
        }
    }
    if (!lens->scaler || lens->width != frame->width || lens->height != frame->height) {
        lens->scaler.reset(make_scaler({frame->width, frame->height, AV_PIX_FMT_YUV422P},
                                       {target.width, target.height, AV_PIX_FMT_YUV420P}));
        lens->width = frame->width;
        lens->height = frame->height;
    }
    if (!lens->scaler || scale_frame(lens->scaler.get(), frame, lens->converted.get()) < 0) {
        throw std::runtime_error("FFmpeg cannot convert this 4:2:2 picture");
    }
    return lens->converted.get();
}

bool Stitcher::is_reduced(const AVFrame* frame) const {
    const ImageSize whole = option_.transmap.projsize;
    return reduction_ > 1 && is_420(frame) && frame->width == whole.width / reduction_ &&
           frame->height == whole.height / reduction_;
}

// As 4:2:0 in the size in which it stands in the stack.
const AVFrame* Stitcher::as_loaded(Lens* lens, const AVFrame* frame) const {
    if (is_reduced(frame)) {
        return frame;
    }
    if (reduction_ == 1) {
        return as_420(lens, frame);
    }
    const ImageSize whole = option_.transmap.projsize;
    const bool is_whole = frame->width == whole.width && frame->height == whole.height;
    const AVFrame* picture = is_whole ? frame : as_420(lens, frame);
    if (!lens->reduced) {
        lens->reduced = new_reduced(picture, reduction_);
    }
    reduce_into(picture, reduction_, lens->reduced.get());
    return lens->reduced.get();
}

cv::Mat Stitcher::place_of(int lens, int plane) const {
    const int rows = halved(option_.transmap.projsize.height, plane) / reduction_;
    return stacks_[static_cast<size_t>(plane)].pixels().rowRange(lens * rows, (lens + 1) * rows);
}

// The range may change in mid-movie, and with it the tables.
const YuvCorrectMap& Stitcher::correction_for(int lens, const AVFrame* frame) {
    Lens& state = lenses_[lens];
    const bool full_range = has_full_range(frame);
    if (state.full_range != full_range) {
        const YuvCorrectMap& offsets = lens == 0 ? option_.correct1 : option_.correct2;
        state.correction = with_gains(offsets, option_.gains[lens], full_range);
        state.full_range = full_range;
    }
    return state.correction;
}

void Stitcher::load(int lens, const AVFrame* frame) {
    check_format(frame, lens);
    if (!is_reduced(frame) && (lens == 0 || !is_422(frame))) {
        // A 4:2:2 picture of the second lens is scaled to the first's size, deliberately.
        check_size(frame, option_.transmap.projsize, lens);
    }
    const AVFrame* picture = as_loaded(&lenses_[lens], frame);
    const YuvCorrectMap& correction = correction_for(lens, frame);
    for (int plane = 0; plane < 3; ++plane) {
        cv::Mat place = place_of(lens, plane);
        copy_plane(picture->data[plane], picture->linesize[plane], correction_of(correction, plane), &place);
    }
}

namespace {

// A value of Y as it stands in the stack.
int corrected(int value, const YuvCorrectMap& map) {
    return map.yenabled ? map.ytable[value] : value;
}

// Of Y in either range: nothing is darker where a lens shows something but night, and light is brighter.
constexpr int kBlack = 24;
constexpr int kLit = 48;

}  // namespace

// Where one of the lenses shows nothing, nothing can be mixed: the whole ring becomes narrower, so that no step
// appears.
void Stitcher::find_feather() {
    if (feather_known_) {
        return;
    }
    const double most = tables_->luma_rows.are_made()
                            ? std::min({option_.feather, tables_->luma_rows.overlap(), tables_->chroma_rows.overlap()})
                            : 0;
    const YuvCorrectMap& map1 = lenses_[0].correction;
    const YuvCorrectMap& map2 = lenses_[1].correction;
    LitOverlap found = {0, true};
    if (most > 0) {
        found = lit_overlap(tables_->luma_rows, stacks_[0], {corrected(kBlack, map1), corrected(kBlack, map2)},
                            {corrected(kLit, map1), corrected(kLit, map2)}, most);
    }
    feather_known_ = found.known;
    if (found.width == feather_) {
        return;
    }
    feather_ = found.width;
    if (tables_->are_kept) {
        luma_ring_ = feather_ > 0 ? kept_ring(tables_->luma_rows, feather_, stacks_[0]) : SeamRing();
        chroma_ring_ = feather_ > 0 ? kept_ring(tables_->chroma_rows, feather_, stacks_[1]) : SeamRing();
    }
}

void Stitcher::stitch_planes(int first, int last, const TableRows& rows, const SampleTable& kept, const SeamRing& ring,
                             AVFrame* panorama) const {
    std::vector<SampledPlane> planes;
    for (int plane = first; plane <= last; ++plane) {
        const cv::Rect ours(0, 0, rows.size().width, rows.size().height);
        planes.push_back({&stacks_[static_cast<size_t>(plane)], whole_plane(panorama, plane)(ours)});
    }
    if (tables_->are_kept) {
        kept.sample(planes, ring);
    } else {
        sample_once(rows, planes, feather_);
    }
    for (int plane = first; plane <= last; ++plane) {
        repeat_last(whole_plane(panorama, plane), rows.size().width, rows.size().height);
    }
}

void Stitcher::stitch_luma(AVFrame* panorama) {
    find_feather();
    stitch_planes(0, 0, tables_->luma_rows, tables_->luma, luma_ring_, panorama);
}

void Stitcher::stitch_chroma(AVFrame* panorama) {
    find_feather();
    stitch_planes(1, 2, tables_->chroma_rows, tables_->chroma, chroma_ring_, panorama);
}
