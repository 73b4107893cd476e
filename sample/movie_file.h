// One movie file with a video track and, if wanted, a sound track.
#pragma once

#include <memory>
#include <string>

#include "sample/ffmpeg.h"
#include "sample/movie.h"
#include "sample/picture.h"

namespace sample {

// Whether the planes handed to a movie of this codec have the full range.
bool is_full_range(const MovieOptions& options, const std::string& codec);

class MovieFile {
  public:
    // Opens options.outputs[index] and writes its header.
    MovieFile(const MovieOptions& options, size_t index);
    ~MovieFile();

    // Encodes the next picture, and the sound that plays with it.
    void write(const Picture& picture);

    // Writes what is left and closes the file.
    void finish();

  private:
    class VideoTrack;
    class SoundTrack;
    struct ContextDeleter {
        void operator()(AVFormatContext* context) const;
    };

    std::unique_ptr<AVFormatContext, ContextDeleter> context_;
    std::unique_ptr<VideoTrack> video_;
    std::unique_ptr<SoundTrack> sound_;
    double sound_seconds_;
};

}  // namespace sample
