#include "jobs/band.h"

#include <cstdint>
#include <fstream>
#include <iterator>

#include "jobs/arguments.h"
#include "jobs/errors.h"
#include "jobs/job.h"
#include "jobs/library.h"
#include "jobs/replies.h"
#include "terminal/console.h"

namespace {

constexpr size_t kPngHead = 33;  // signature and IHDR (PNG specification, 5.2 and 11.2.1)

int number_at(const std::string& bytes, size_t at) {
    uint32_t number = 0;
    for (size_t i = at; i < at + 4; ++i) {
        number = number << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return static_cast<int>(number);
}

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool is_png(const std::string& bytes) {
    return bytes.size() >= kPngHead && bytes.compare(0, 8, "\x89PNG\r\n\x1a\n") == 0;
}

// An alpha channel, or a chunk that names transparent colours; it stands before the picture's data.
bool has_transparency(const std::string& png) {
    const auto colour_type = static_cast<unsigned char>(png[25]);
    const size_t data = png.find("IDAT");
    return colour_type == 4 || colour_type == 6 || png.rfind("tRNS", data) != std::string::npos;
}

Size size_of(const std::string& path, const std::string& bytes) {
    if (is_png(bytes)) {
        return {number_at(bytes, 16), number_at(bytes, 20)};
    }
    const std::string reply = analyze_file(path).reply;  // nothing where it is no JPEG by its name
    return {static_cast<int>(last_number(reply, "width")), static_cast<int>(last_number(reply, "height"))};
}

}  // namespace

void check_band(const std::string& path) {
    check_input(path, "the picture");
    const std::string bytes = contents(path);
    const Size size = size_of(path, bytes);
    if (size.width > 0 && 2LL * size.height >= size.width) {
        throw CommandError(printable(path) + ": would cover the whole panorama (" + std::to_string(size.width) + "x" +
                           std::to_string(size.height) + "); a band is a strip, far wider than high");
    }
    if (is_png(bytes) && has_transparency(bytes)) {
        throw CommandError(printable(path) + ": is transparent, and all of it would be laid over the seam; save it " +
                           "without transparency");
    }
}
