#include "lobby.h"

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "jobs/errors.h"

namespace {

constexpr size_t kMostGuests = 256;
constexpr std::chrono::seconds kPatience(15);  // for a whole request
constexpr int kAtOnce = 64;                    // connections taken before the others are looked at again

Descriptor listening_socket(int port) {
    Descriptor listening(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int yes = 1;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(port));
    // A port that was left a moment ago can be had again; one that is in use cannot.
    setsockopt(listening.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
    if (!listening || bind(listening.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listening.get(), SOMAXCONN) != 0) {
        throw CommandError("port " + std::to_string(port) + ": cannot be listened on (" + std::strerror(errno) +
                           "); --port 0 takes any free one");
    }
    return listening;
}

int port_of(const Descriptor& listening) {
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    getsockname(listening.get(), reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

}  // namespace

Lobby::Lobby(int port, TakeRequest take)
    : take_(std::move(take)), listening_(listening_socket(port)), port_(port_of(listening_)) {}

void Lobby::look_after(std::chrono::milliseconds moment) {
    std::vector<pollfd> watched = {{listening_.get(), POLLIN, 0}};
    for (const Guest& guest : guests_) {
        watched.push_back({guest.connection.get(), POLLIN, 0});
    }
    const int ready = poll(watched.data(), watched.size(), static_cast<int>(moment.count()));
    auto guest = guests_.begin();
    for (size_t i = 1; ready > 0 && i < watched.size(); ++i) {
        const auto current = guest++;
        if (watched[i].revents != 0 && !read_from(&*current)) {
            if (current->reader.status() != 0) {
                take_(std::move(current->connection), current->reader.status(), current->reader.text());
            }
            guests_.erase(current);
        }
    }
    if (ready > 0 && watched[0].revents != 0) {
        welcome();
    }
    show_out_late(Clock::now());
}

void Lobby::welcome() {
    for (int i = 0; i < kAtOnce; ++i) {
        Descriptor connection(accept4(listening_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!connection) {
            if ((errno == EMFILE || errno == ENFILE) && !guests_.empty()) {
                guests_.pop_front();
                continue;
            }
            return;
        }
        const int yes = 1;
        setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
        if (guests_.size() == kMostGuests) {
            guests_.pop_front();
        }
        guests_.push_back({std::move(connection), Clock::now(), {}});
    }
}

// Whether there is more to wait for.
bool Lobby::read_from(Guest* guest) const {
    char bytes[4096];
    while (guest->reader.status() == 0) {
        const ssize_t count = recv(guest->connection.get(), bytes, sizeof(bytes), 0);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            return true;
        }
        if (count <= 0) {
            return false;
        }
        guest->reader.add({bytes, static_cast<size_t>(count)});
    }
    return false;
}

void Lobby::show_out_late(Clock::time_point now) {
    while (!guests_.empty() && now - guests_.front().came > kPatience) {
        guests_.pop_front();
    }
}
