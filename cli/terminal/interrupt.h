// Ctrl-C and its kin. The first one asks a job to stop where it can; the second one ends the process at once.
#pragma once

#include <string>

// Installs the handlers for SIGINT, SIGTERM and SIGHUP, those apart that the caller of the command ignores.
void watch_interrupts();

bool interrupted();

// A path at which something stands once a signal has come.
std::string cancel_path();

// A job that can be stopped, and says so when a signal comes. One at a time.
class Stoppable {
  public:
    // "stopping once WAITS_FOR; Ctrl-C again stops at once".
    explicit Stoppable(const std::string& waits_for);
    ~Stoppable();
    Stoppable(const Stoppable&) = delete;
    Stoppable& operator=(const Stoppable&) = delete;

    // The job's own file, which an end at once removes.
    void leaves(const std::string& file);
};
