// Stitches the pairs of one export: what convert_equirectangular_with_map does with one pair, with everything
// kept from pair to pair that can be, and no copy beyond the one into the source that the tables address.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "media/ffmpeg_ptr.h"
#include "media/output_option.h"
#include "projection/sample_table.h"
#include "projection/seam_ring.h"

// The picture of a 4:2:0 or 4:2:2 frame with each k x k pixels brought to their mean, as 4:2:0; `k` is 1 or another
// result of Stitcher::reduction_for. Where there is nothing to reduce (k is 1, or k does not divide the sides, or
// it is another format, which Stitcher::load refuses) it is another reference to the frame itself.
FramePtr reduced_frame(const AVFrame* frame, int k);

// Throws a text that names the input (lens 0 or 1) when its frame has a format that cannot be stitched: a decoder may
// deliver another one than the container announced.
void check_format(const AVFrame* frame, int lens);

// What all pairs of one export are stitched by; several stitchers may read it at once.
struct StitchTables {
    // Without whole tables in the option's transmap, they are made from its other settings. Whole tables are taken as
    // they are: turns, feather and filter have no part in them. For many pairs tables are kept in the form that
    // sampling needs, otherwise made and used row by row; the panoramas are the same.
    StitchTables(const OutputOption& option, bool many_pairs);

    TableRows luma_rows;
    TableRows chroma_rows;
    bool are_kept;
    SampleTable luma;  // where they are kept
    SampleTable chroma;
};

class Stitcher {
  public:
    // By how much lens pictures are reduced before a panorama is sampled from them: 1, 2, 4 or 8. 1 without the
    // option's filter.
    static int reduction_for(const OutputOption& option);

    // `option`, for which the tables were made, is borrowed.
    Stitcher(const OutputOption& option, std::shared_ptr<const StitchTables> tables);
    // With tables of its own.
    Stitcher(const OutputOption& option, bool many_pairs)
        : Stitcher(option, std::make_shared<StitchTables>(option, many_pairs)) {}

    // From the next pair on nothing is kept of what the pairs before have shown.
    void forget() { feather_known_ = false; }

    // Takes over the decoded frame of a lens (0 or 1), converted to 4:2:0, reduced and corrected; one that
    // reduced_frame has reduced already gives the same panorama. The two lenses may be loaded at the same time. Throws
    // a text when the frame is not what the tables were built for.
    void load(int lens, const AVFrame* frame);

    // Fill the planes of a 4:2:0 frame of the panorama's size. Chroma of an odd size has a last column or row
    // more than the tables: it repeats the one before.
    void stitch_luma(AVFrame* panorama);
    void stitch_chroma(AVFrame* panorama);

  private:
    struct Lens {
        FramePtr converted;  // kept for frames that are not 4:2:0
        FramePtr reduced;    // kept for frames that are to be reduced
        ScalerPtr scaler;
        int width = 0;  // what the scaler reads
        int height = 0;
        std::optional<bool> full_range;  // of the frame that `correction` is for
        YuvCorrectMap correction{};      // gains and offsets
    };

    bool is_reduced(const AVFrame* frame) const;
    const AVFrame* as_420(Lens* lens, const AVFrame* frame) const;
    const AVFrame* as_loaded(Lens* lens, const AVFrame* frame) const;
    const YuvCorrectMap& correction_for(int lens, const AVFrame* frame);
    cv::Mat place_of(int lens, int plane) const;
    void find_feather();
    // The planes `first` to `last`, which share a table and a ring.
    void stitch_planes(int first, int last, const TableRows& rows, const SampleTable& kept, const SeamRing& ring,
                       AVFrame* panorama) const;

    const OutputOption& option_;
    const std::shared_ptr<const StitchTables> tables_;
    const int reduction_;
    std::vector<FramedPlane> stacks_;  // per plane: lens 1 above lens 2 above the band, all reduced
    SeamRing luma_ring_;               // of tables that are kept
    SeamRing chroma_ring_;
    double feather_ = 0;          // as wide as the lenses allow
    bool feather_known_ = false;  // nothing can be learnt of that from further pairs
    Lens lenses_[2];
};
