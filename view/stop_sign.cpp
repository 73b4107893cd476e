#include "stop_sign.h"

#include <fcntl.h>
#include <unistd.h>

// Nothing lies below a device.
StopSign::StopSign() : descriptor_(open("/dev/null", O_RDONLY | O_CLOEXEC)) {}

std::string StopSign::path() const {
    return "/proc/self/fd/" + std::to_string(descriptor_.get()) + "/null";
}

void StopSign::raise() const {
    const Descriptor folder(open("/dev", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder && descriptor_) {
        dup3(folder.get(), descriptor_.get(), O_CLOEXEC);
    }
}
