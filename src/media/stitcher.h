// Stitches the pairs of one export: what convert_equirectangular_with_map does with one pair, with everything
// kept from pair to pair that can be, and no copy beyond the one into the source that the tables address.
#pragma once

#include <vector>

#include "media/ffmpeg_ptr.h"
#include "media/output_option.h"
#include "projection/sample_table.h"

class Stitcher {
  public:
    // `option` is borrowed; without whole tables in its transmap, they are made from its other settings. For many
    // pairs they are kept in the form that sampling needs, otherwise made and used row by row; the panoramas are
    // the same.
    Stitcher(const OutputOption& option, bool many_pairs);

    // Takes over the decoded frame of a lens (0 or 1), converted to 4:2:0 and corrected. The two lenses may be
    // loaded at the same time. Throws a text when the frame is not what the tables were built for.
    void load(int lens, const AVFrame* frame);

    // Fill the planes of a 4:2:0 frame of the panorama's size. Chroma of an odd size has a last column or row
    // more than the tables: it repeats the one before.
    void stitch_luma(AVFrame* panorama) const;
    void stitch_chroma(AVFrame* panorama) const;

  private:
    struct Lens {
        FramePtr converted;  // kept for frames that are not 4:2:0
        ScalerPtr scaler;
        int width = 0;  // what the scaler reads
        int height = 0;
    };

    const AVFrame* as_420(Lens* lens, const AVFrame* frame) const;
    cv::Mat place_of(int lens, int plane) const;
    // The planes `first` to `last`, which share a table.
    void stitch_planes(int first, int last, const TableRows& rows, const SampleTable& kept, AVFrame* panorama) const;

    const OutputOption& option_;
    const bool many_pairs_;
    std::vector<FramedPlane> stacks_;  // per plane: lens 1 above lens 2 above the band
    TableRows luma_rows_;
    TableRows chroma_rows_;
    SampleTable luma_;  // for many pairs
    SampleTable chroma_;
    Lens lenses_[2];
};
