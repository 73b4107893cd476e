// nq360 view
#include "view_command.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <memory>

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <unistd.h>

#include "answering.h"
#include "jobs/errors.h"
#include "jobs/option.h"
#include "jobs/replies.h"
#include "lobby.h"
#include "site.h"
#include "terminal/interrupt.h"

namespace {

namespace fs = std::filesystem;

constexpr int kMostPort = 65535;
constexpr size_t kThreads = 32;    // answers at a time; those that may take long are bounded each
constexpr int kMostWaiting = 256;  // requests that wait for a thread
constexpr Patience kPatience = {std::chrono::seconds(20), size_t{256} << 10};
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

// Apart from this command: not in its session, which Ctrl-C reaches, and with none of its streams and settings.
void open_browser(const std::string& address) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGDEF);
    sigset_t usual;
    sigfillset(&usual);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawn_file_actions_t streams;
    posix_spawn_file_actions_init(&streams);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&streams, stream, "/dev/null", O_RDWR, 0);
    }
    char program[] = "xdg-open";
    std::string argument = address;
    char* arguments[] = {program, argument.data(), nullptr};
    std::signal(SIGCHLD, SIG_IGN);  // nobody waits for it
    if (posix_spawnp(nullptr, program, &streams, &attributes, arguments, environ) == 0) {
        console().tell("Opening it in the browser");
    }
    posix_spawn_file_actions_destroy(&streams);
    posix_spawnattr_destroy(&attributes);
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
                if (!interrupted()) {
                    Answering stream(guest->get(), text, kPatience);
                    site.answer(stream);
                }
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
