#include "answering.h"

#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

#include "terminal/interrupt.h"

namespace {

constexpr int kTurn = 100;  // ms after which is looked whether all ends

}  // namespace

Answering::Answering(int connection, std::string request, Patience patience)
    : connection_(connection), request_(std::move(request)), patience_(patience) {}

bool Answering::is_writable() const {
    pollfd watched = {connection_, POLLOUT, 0};
    return poll(&watched, 1, 0) >= 0 && (watched.revents & (POLLERR | POLLHUP)) == 0;
}

ssize_t Answering::read(char* bytes, size_t size) {
    const size_t count = request_.copy(bytes, size, read_);
    read_ += count;
    return static_cast<ssize_t>(count);
}

ssize_t Answering::write(const char* bytes, size_t size) {
    for (size_t written = 0; written < size;) {
        const ssize_t count = send(connection_, bytes + written, size - written, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EINTR && (errno != EAGAIN || !wait_for_room())) {
            return -1;
        }
        written += count > 0 ? static_cast<size_t>(count) : 0;
        taken_ += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return static_cast<ssize_t>(size);
}

void Answering::get_remote_ip_and_port(std::string& ip, int& port) const {
    ip = "127.0.0.1";
    port = 0;
}

// What the system takes before anybody reads does not count.
bool Answering::wait_for_room() {
    taken_ = waited_ == Clock::duration::zero() ? 0 : taken_;
    while (!interrupted()) {
        pollfd watched = {connection_, POLLOUT, 0};
        const auto begun = Clock::now();
        const int ready = poll(&watched, 1, kTurn);
        waited_ += Clock::now() - begun;
        if (waited_ >= patience_.time) {
            if (taken_ < patience_.bytes) {
                return false;
            }
            waited_ = Clock::duration::zero();
            taken_ = 0;
        }
        if (ready > 0) {
            return (watched.revents & POLLOUT) != 0;
        }
    }
    return false;
}
