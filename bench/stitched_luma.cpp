// Writes the luma of two lens movies' panoramas to the standard output, row by row, frame after frame: what an export
// hands to its encoder, to be compared with what comes out of it.
//
// Usage: stitched_luma LENS1 LENS2 COLUMNS ROWS
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/output_option.h"
#include "media/scaler.h"
#include "media/stitcher.h"
#include "projection/lens_circle.h"

namespace {

class LensMovie {
  public:
    explicit LensMovie(const char* path) : media_(path) {
        if (media_.open_input_file(0) != 0) {
            throw std::runtime_error(std::string(path) + ": " + media_.error_text);
        }
    }

    // Whether there was one more frame.
    bool next() {
        int got_frame = 0;
        while (!got_frame) {
            at_end_ = at_end_ || media_.read_packet(0, packet_.get(), {}) < 0;
            if (at_end_) {
                packet_->stream_index = media_.video_stream_index[0];  // empty: for what the decoder holds back
            }
            media_.decode_packet(0, *packet_, frame_.get(), &got_frame);
            av_packet_unref(packet_.get());
            if (at_end_ && !got_frame) {
                return false;
            }
        }
        return true;
    }

    const AVFrame* frame() const { return frame_.get(); }
    ImageSize size() const { return {media_.width, media_.height}; }

  private:
    libavIF media_;
    PacketPtr packet_ = new_packet();
    FramePtr frame_ = new_frame();
    bool at_end_ = false;
};

void write_luma(const AVFrame* panorama) {
    for (int row = 0; row < panorama->height; ++row) {
        const auto width = static_cast<size_t>(panorama->width);
        if (std::fwrite(panorama->data[0] + static_cast<ptrdiff_t>(row) * panorama->linesize[0], 1, width, stdout) !=
            width) {
            throw std::runtime_error("the standard output takes no more");
        }
    }
}

void write_panoramas(const char* path1, const char* path2, ImageSize size) {
    LensMovie lens1(path1);
    LensMovie lens2(path2);
    OutputOption option;
    option.output_size = option.transmap.equsize = size;
    option.transmap.projsize = lens1.size();
    option.radius = projection_radius(lens1.size().width);
    Stitcher stitcher(option, true);
    const FramePtr panorama = make_frame({size.width, size.height, AV_PIX_FMT_YUV420P});
    while (lens1.next() && lens2.next()) {
        stitcher.load(0, lens1.frame());
        stitcher.load(1, lens2.frame());
        stitcher.stitch_luma(panorama.get());
        write_luma(panorama.get());
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: stitched_luma LENS1 LENS2 COLUMNS ROWS\n");
        return 2;
    }
    try {
        write_panoramas(argv[1], argv[2], {std::atoi(argv[3]), std::atoi(argv[4])});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "stitched_luma: %s\n", error.what());
        return 1;
    }
    return 0;
}
