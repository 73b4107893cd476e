// nq360 view
#include "view_command.h"

#include <atomic>
#include <filesystem>
#include <memory>

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "jobs/arguments.h"
#include "jobs/errors.h"
#include "jobs/replies.h"
#include "lobby.h"
#include "site.h"
#include "terminal/interrupt.h"

namespace {

namespace fs = std::filesystem;

constexpr int kMostPort = 65535;
constexpr size_t kThreads = 24;        // answers at a time, those included that wait for progress
constexpr int kMostWaiting = 256;      // requests that wait for a thread
constexpr int kWritePatience = 20000;  // ms that a browser may take none of an answer
constexpr std::chrono::milliseconds kMoment(100);

// The page's own files, beside the command as it is installed or as it is built.
std::string page_folder() {
    std::error_code error;
    const fs::path command = fs::read_symlink("/proc/self/exe", error);
    for (const char* place : {NQ360_BIN_TO_PAGE, "../view/page"}) {
        const fs::path folder = command.parent_path() / place;
        if (fs::exists(folder / "index.html", error)) {
            return fs::canonical(folder, error).string();
        }
    }
    throw CommandError("the page is not installed: nq360 was built without node; see scripts/view");
}

// A connection as the server writes to it; what it reads has been read already.
class Answering : public httplib::Stream {
  public:
    Answering(int connection, std::string request) : connection_(connection), request_(std::move(request)) {}

    bool is_readable() const override { return read_ < request_.size(); }

    bool is_writable() const override {
        pollfd watched = {connection_, POLLOUT, 0};
        return poll(&watched, 1, 0) >= 0 && (watched.revents & (POLLERR | POLLHUP)) == 0;
    }

    ssize_t read(char* bytes, size_t size) override {
        const size_t count = request_.copy(bytes, size, read_);
        read_ += count;
        return static_cast<ssize_t>(count);
    }

    ssize_t write(const char* bytes, size_t size) override {
        for (size_t written = 0; written < size;) {
            const ssize_t count = send(connection_, bytes + written, size - written, MSG_NOSIGNAL);
            if (count < 0 && errno != EINTR && (errno != EAGAIN || !wait_for_room())) {
                return -1;
            }
            written += count > 0 ? static_cast<size_t>(count) : 0;
        }
        return static_cast<ssize_t>(size);
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override {
        ip = "127.0.0.1";
        port = 0;
    }
    void get_local_ip_and_port(std::string& ip, int& port) const override { get_remote_ip_and_port(ip, port); }
    socket_t socket() const override { return connection_; }

  private:
    bool wait_for_room() const {
        pollfd watched = {connection_, POLLOUT, 0};
        return poll(&watched, 1, kWritePatience) == 1 && (watched.revents & POLLOUT) != 0;
    }

    int connection_;
    std::string request_;
    size_t read_ = 0;
};

void refuse(const Descriptor& connection, int status) {
    const std::string answer = "HTTP/1.1 " + std::to_string(status) +
                               " Refused\r\nContent-Length: 0\r\nConnection: close\r\n"
                               "X-Content-Type-Options: nosniff\r\n\r\n";
    const ssize_t written = send(connection.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
    static_cast<void>(written);
    // Closed with bytes unread, a connection would take the answer back.
    shutdown(connection.get(), SHUT_WR);
    char bytes[4096];
    for (int i = 0; i < 64 && recv(connection.get(), bytes, sizeof(bytes), MSG_DONTWAIT) > 0; ++i) {
    }
}

void open_browser(const std::string& address) {
    char program[] = "xdg-open";
    std::string argument = address;
    char* arguments[] = {program, argument.data(), nullptr};
    pid_t process = 0;
    if (posix_spawnp(&process, program, nullptr, nullptr, arguments, environ) == 0) {
        console().tell("Opening it in the browser");
    }
}

// Ends with all that has been begun.
class Threads {
  public:
    ~Threads() { pool_.shutdown(); }
    Threads() = default;
    Threads(const Threads&) = delete;
    Threads& operator=(const Threads&) = delete;

    void run(std::function<void()> task) { pool_.enqueue(std::move(task)); }

  private:
    httplib::ThreadPool pool_{kThreads};
};

class View : public Command {
  public:
    explicit View(CLI::App& app)
        : Command(app, "view",
                  "Shows the shots of a folder in the browser: to look around, adjust and export. The page comes from "
                  "this machine and is for this machine alone. Ctrl-C ends it; exports that run are cancelled.") {
        parser().add_option("FOLDER", options_.folder, "folder with pictures and movies (this one)");
        add_text(parser(), "--to", options_.made, "DIR", "where exports go (FOLDER)");
        parser()
            .add_option("--port", port_, "port to listen on; 0 is any free one (0)")
            ->check(CLI::Range(0, kMostPort))
            ->option_text("N");
        parser().add_flag("--no-browser", no_browser_, "print the address only");
        parser().add_flag("--read-only", options_.read_only, "write nothing into the folders");
        parser().add_flag("--json", json_, "print one JSON object with the address when the page can be opened");
        add_loudness();
    }

  private:
    int run() override {
        options_.made = options_.made.empty() ? options_.folder : options_.made;
        options_.page = page_folder();
        Site site(options_);
        std::atomic<int> waiting = 0;
        Threads threads;
        Lobby lobby(port_, [&](Descriptor connection, int status, std::string request) {
            if (status != 200 || waiting >= kMostWaiting) {
                refuse(connection, status == 200 ? 503 : status);
                return;
            }
            ++waiting;
            const auto guest = std::make_shared<Descriptor>(std::move(connection));
            threads.run([&site, &waiting, guest, text = std::move(request)] {
                --waiting;
                Answering stream(guest->get(), text);
                site.answer(stream);
            });
        });
        site.open_door(lobby.port());
        tell(site.door().address());
        while (!interrupted()) {
            lobby.look_after(kMoment);
        }
        site.close();
        return kDone;
    }

    void tell(const std::string& address) const {
        if (json_) {
            console().print(json_line({{"address", address}, {"folder", options_.folder}}));
        } else {
            console().print(address + "\n");
            console().tell("Ctrl-C ends it.");
        }
        if (!no_browser_) {
            open_browser(address);
        }
    }

    SiteOptions options_ = {".", "", "", false};
    int port_ = 0;
    bool no_browser_ = false;
    bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> make_view(CLI::App& app) {
    return std::make_unique<View>(app);
}
