// Stitches two lens pictures or movies, shows how far it is, and stops at Ctrl-C: progress LENS1 LENS2 PANORAMA
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <nq360.h>
#include <unistd.h>

namespace {

// A file at this path stops the export at its next progress reply.
std::string marker;

// The library calls back without a pointer of the caller's, so what a reply leaves behind is global. Exports in
// several threads would keep it `thread_local`: a callback comes on the thread of its call.
long long total = 0;
NQ360_STATE last_state = NQ360_FAILED;

void stop_at_ctrl_c(int) {
    const int file = open(marker.c_str(), O_WRONLY | O_CREAT, 0600);  // one of the few calls a handler may make
    if (file >= 0) {
        close(file);
    }
}

// Enough for one number; a program that reads more of the replies takes a JSON library.
long long frame_count(const char* json) {
    const char* key = std::strstr(json, "\"frame_count\":");
    return key ? std::strtoll(std::strchr(key, ':') + 1, nullptr, 10) : 0;
}

void on_reply(NQ360_STATE state, const char* json) {
    last_state = state;
    switch (state) {
        case NQ360_STARTED:
            total = frame_count(json);
            std::printf("%lld frames to do\n", total);
            break;
        case NQ360_PROGRESS:
            std::printf("\r%lld of %lld", frame_count(json), total);
            break;
        case NQ360_FINISHED:
            std::printf("\rdone%20s\n", "");
            break;
        case NQ360_CANCELLED:
            std::printf("\rstopped%20s\n", "");
            break;
        case NQ360_FAILED:
            std::printf("\rfailed: %s\n", json);
            break;
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s LENS1 LENS2 PANORAMA\n", argv[0]);
        return 2;
    }
    std::string folder = std::filesystem::temp_directory_path() / "progress-XXXXXX";
    if (!mkdtemp(folder.data())) {
        std::perror(folder.c_str());
        return 1;
    }
    marker = folder + "/stop";
    std::signal(SIGINT, stop_at_ctrl_c);

    const int no = CORRECT_NONE;
    const float whole = 3600;  // seconds; a movie that ends before is taken to its end
    NQ360_export(argv[1], argv[2], argv[3], nullptr, 3840, 1920, 0, no, no, no, no, no, no, 0, "2026:01:02 03:04:05",
                 marker.c_str(), on_reply, 0, 0, 0, 0, whole, whole);

    unlink(marker.c_str());
    rmdir(folder.c_str());
    if (last_state == NQ360_CANCELLED) {
        return 130;
    }
    return last_state == NQ360_FINISHED ? 0 : 1;
}
