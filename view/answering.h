// A connection as an answer is written to it; what it reads is a request that is there whole.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include <httplib.h>

// How slowly an answer may be taken: so many bytes while so long was waited for the reader.
struct Patience {
    std::chrono::milliseconds time;
    size_t bytes;
};

class Answering : public httplib::Stream {
  public:
    Answering(int connection, std::string request, Patience patience);

    bool is_readable() const override { return read_ < request_.size(); }
    bool is_writable() const override;
    ssize_t read(char* bytes, size_t size) override;

    // -1 once the reader is gone or too slow, or would have to be waited for while all ends.
    ssize_t write(const char* bytes, size_t size) override;

    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override { get_remote_ip_and_port(ip, port); }
    socket_t socket() const override { return connection_; }

  private:
    using Clock = std::chrono::steady_clock;

    bool wait_for_room();

    int connection_;
    std::string request_;
    size_t read_ = 0;
    Patience patience_;
    Clock::duration waited_{0};
    size_t taken_ = 0;  // bytes, since `waited_` was zero
};
