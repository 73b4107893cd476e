// A path for the library to look at, which does not exist until the job there is to stop. No file is needed for it: it
// leads through a descriptor of this process.
#pragma once

#include <string>

#include "terminal/descriptor.h"

class StopSign {
  public:
    StopSign();

    std::string path() const;

    // From now on something stands at the path. A signal's handler may call it.
    void raise() const;

  private:
    Descriptor descriptor_;
    Descriptor raised_;
};
