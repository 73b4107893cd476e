// The two halves of a shot, with the frames of them that were looked at last.
#pragma once

#include <string>

#include "media/ffmpeg_ptr.h"
#include "media/output_option.h"

// Holds both frames, 1.5 bytes a pixel, and a reduced copy of each, at most a quarter of that; no file stays open.
class OpenShot {
  public:
    // Reads nothing yet.
    OpenShot(const char* path1, const char* path2) : halves_{{1, path1}, {2, path2}} {}

    // Decodes the first frames at or after these times; nothing where they are here already. Throws UnreadableFile or a
    // text that names the input; what is here stays then.
    void go_to(double seconds1, double seconds2);

    // Of lens 0 or 1, in 4:2:0; null before go_to().
    const AVFrame* frame(int lens) const { return halves_[lens].frame.get(); }

    // The panorama of both frames that an export by these options makes of them; 4:2:0 in `range`. What the lenses are
    // reduced by for it is kept for the next one.
    FramePtr stitched(const OutputOption& option, AVColorRange range);

  private:
    struct Half {
        Half(int number_of_input, const char* path_of_file) : number(number_of_input), path(path_of_file) {}

        void go_to(double wanted);
        const AVFrame* reduced_by(int k);

        int number;
        std::string path;
        bool is_still = false;
        double seconds = 0;
        FramePtr frame;
        FramePtr reduced;
        int reduction = 0;  // of `reduced`
    };

    Half halves_[2];
};
