// Ctrl-C and its kin. The first one asks a job to stop at its next progress report, through the marker file
// that the library looks for; the second one ends the process at once.
#pragma once

#include <string>

// Installs the handlers for SIGINT, SIGTERM and SIGHUP, those apart that the caller of the command ignores.
void watch_interrupts();

bool interrupted();

// The marker of one job, in a private temporary folder. One at a time.
class CancelMarker {
  public:
    // `output` is what the job writes.
    explicit CancelMarker(const std::string& output);
    ~CancelMarker();
    CancelMarker(const CancelMarker&) = delete;
    CancelMarker& operator=(const CancelMarker&) = delete;

    const std::string& path() const { return path_; }

    // From now on the output is the job's: an end at once removes it.
    void output_begun();

  private:
    std::string folder_;
    std::string path_;
};
