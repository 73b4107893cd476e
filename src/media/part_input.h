// The frames of one input for a part of an export.
#pragma once

#include <cstdint>

#include "media/ffmpeg_ptr.h"
#include "media/libavif.h"
#include "media/part_plan.h"

class PartInput {
  public:
    // `movie`: as the plan has it, borrowed; null for a still. `looks_for_missing_parts`: a picture of which
    // the decoder had to make up a part does not come.
    PartInput(const char* path, const MovieFrames* movie, bool looks_for_missing_parts);

    // Goes to the last frame up to `first` that can be decoded without those before it. False when the input cannot be
    // read so.
    bool open(int64_t first);

    // The frame of that number, which is greater than that of the call before; valid until the next call. Null when it
    // does not come, or the decoder brings other frames than the index tells.
    const AVFrame* frame(int64_t number);

  private:
    bool seek(int64_t key);
    bool send_next();
    bool receive();
    bool is_as_planned() const;

    libavIF media_;
    const MovieFrames* movie_;
    PacketPtr packet_{new_packet()};
    FramePtr frame_{new_frame()};
    int64_t next_ = 0;         // the number of the frame that the decoder brings next
    bool must_begin_ = false;  // the next packet must be one from which a decoder can begin
    bool at_end_ = false;
};
