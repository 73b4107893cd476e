#include "answering.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "terminal/descriptor.h"

namespace {

constexpr Patience kPatience = {std::chrono::milliseconds(500), size_t{64} << 10};

class Connection {
  public:
    Connection() {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        server_ = Descriptor(ends[0]);
        client_ = Descriptor(ends[1]);
        const int little = 4096;  // so that all of it has to be read, soon
        EXPECT_EQ(setsockopt(server_.get(), SOL_SOCKET, SO_SNDBUF, &little, sizeof(little)), 0);
    }

    // Whether all of it was taken by a reader that reads so much in each turn.
    bool sends(size_t size, size_t bytes_a_turn, std::chrono::milliseconds turn) {
        std::thread reader([&] {
            std::string bytes(bytes_a_turn, '\0');
            while (recv(client_.get(), bytes.data(), bytes.size(), 0) > 0) {
                std::this_thread::sleep_for(turn);
            }
        });
        Answering answering(server_.get(), "", kPatience);
        const bool sent = answering.write(std::string(size, 'x').data(), size) == static_cast<ssize_t>(size);
        shutdown(server_.get(), SHUT_RDWR);
        reader.join();
        return sent;
    }

  private:
    Descriptor server_;
    Descriptor client_;
};

TEST(Answering, WaitsForWhoReads) {
    EXPECT_TRUE(Connection().sends(size_t{256} << 10, size_t{64} << 10, std::chrono::milliseconds(1)));
}

TEST(Answering, GivesUpOnWhoReadsNextToNothing) {
    EXPECT_FALSE(Connection().sends(size_t{256} << 10, 1024, std::chrono::milliseconds(20)));
}

TEST(Answering, IsReadAsItCame) {
    Answering answering(-1, "GET /", kPatience);
    char bytes[3];
    EXPECT_EQ(answering.read(bytes, 3), 3);
    EXPECT_TRUE(answering.is_readable());
    EXPECT_EQ(answering.read(bytes, 3), 2);
    EXPECT_FALSE(answering.is_readable());
}

}  // namespace
