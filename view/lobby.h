// Where connections wait until what they ask for is there. One thread looks after all of them, so whoever sends slowly
// holds up nobody; when they are too many, the one that has waited longest goes.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <string>

#include "request_reader.h"
#include "terminal/descriptor.h"

// Gets a connection and its whole request, or the status that refuses it.
using TakeRequest = std::function<void(Descriptor connection, int status, std::string request)>;

class Lobby {
  public:
    // Listens on the loopback address; port 0 is any free one. Throws CommandError when that cannot be.
    Lobby(int port, TakeRequest take);

    int port() const { return port_; }

    // Waits for what comes, a moment at most, and hands it on.
    void look_after(std::chrono::milliseconds moment);

  private:
    using Clock = std::chrono::steady_clock;
    struct Guest {
        Descriptor connection;
        Clock::time_point came;
        RequestReader reader;
    };

    void welcome();
    bool read_from(Guest* guest) const;
    void show_out_late(Clock::time_point now);

    TakeRequest take_;
    Descriptor listening_;
    int port_ = 0;
    std::list<Guest> guests_;  // who came first stands first
};
