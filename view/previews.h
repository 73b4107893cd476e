// Panoramas made while somebody looks: the shots looked at last stay decoded.
#pragma once

#include <array>
#include <list>
#include <mutex>
#include <string>

#include "jobs/library.h"
#include "shared_folders.h"

class Previews {
  public:
    // The JPEG of the job's frames, of lens pictures so wide. Throws CommandError in the command's words.
    std::string make(const ExportJob& job, const std::array<FileVersion, 2>& lenses, int lens_width);

  private:
    struct Kept {
        std::array<FileVersion, 2> lenses;
        ShotHandle shot;
        size_t bytes;
    };
    NQ360_SHOT* shot_of(const ExportJob& job, const std::array<FileVersion, 2>& lenses, int lens_width);
    void make_room(size_t bytes);

    std::mutex mutex_;
    std::list<Kept> kept_;  // the one looked at last comes first
};
