// What anybody may send to the viewer's server: whole requests go through the server's own parser and all routes, as
// whoever has the cookie and as whoever has not.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "check.h"
#include "request_reader.h"
#include "site.h"

namespace fs = std::filesystem;

namespace {

// Reads the request and keeps the beginning of the answer.
class Answering : public httplib::Stream {
  public:
    explicit Answering(const std::string& request) : request_(request) {}

    bool is_readable() const override { return read_ < request_.size(); }
    bool is_writable() const override { return true; }
    ssize_t read(char* bytes, size_t size) override {
        const size_t count = request_.copy(bytes, size, read_);
        read_ += count;
        return static_cast<ssize_t>(count);
    }
    ssize_t write(const char* bytes, size_t size) override {
        answer_.append(bytes, answer_.size() < 64 ? size : 0);
        return static_cast<ssize_t>(size);
    }
    void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    socket_t socket() const override { return 0; }

    const std::string& answer() const { return answer_; }

  private:
    const std::string& request_;
    size_t read_ = 0;
    std::string answer_;
};

// An empty folder: it is the requests that are tried, not the files.
Site& site() {
    static Site* const one = [] {
        const fs::path folder = fs::temp_directory_path() / "nq360-fuzz-view";
        fs::create_directories(folder / "page");
        fs::create_directories(folder / "shots");
        setenv("XDG_CACHE_HOME", folder.c_str(), 1);
        std::ofstream(folder / "page" / "index.html") << "page";
        std::ofstream(folder / "shots" / "sound.wav") << "0123456789";
        auto* const made = new Site({folder / "shots", folder / "shots", folder / "page", false});
        made->open_door(1);
        return made;
    }();
    return *one;
}

// Answered with a status, and never with what the cookie alone opens when there is none.
void try_request(const std::string& request, bool is_known) {
    Answering stream(request);
    site().answer(stream);
    const std::string status = stream.answer().substr(0, 12);
    fuzz::require(status.rfind("HTTP/1.", 0) == 0, "every request gets an answer");
    const std::string number = status.substr(std::min<size_t>(status.size(), 9));
    const bool is_refused = number == "403" || number == "400" || number == "414";  // the others: it cannot be read
    fuzz::require(is_known || is_refused, "nothing opens without the cookie");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RequestReader reader;
    for (size_t at = 0; at < size && reader.status() == 0; at += 1000) {
        reader.add({reinterpret_cast<const char*>(data) + at, std::min<size_t>(1000, size - at)});
    }
    if (reader.status() != 200) {
        return 0;
    }
    try_request(reader.text(), false);
    const std::string set = site().door().cookie();
    const size_t line_end = reader.text().find("\r\n") + 2;
    std::string known = reader.text();
    known.insert(line_end, "Host: 127.0.0.1:1\r\nCookie: " + set.substr(0, set.find(';')) + "\r\n");
    try_request(known, true);
    return 0;
}
