#include "batch/memory.h"

#include <algorithm>
#include <fstream>
#include <string>

namespace {

std::optional<uint64_t> number_in(const std::string& path) {
    std::ifstream file(path);
    uint64_t number = 0;
    return file >> number ? std::optional(number) : std::nullopt;  // "max" is none
}

// The number behind this word in a file of words and numbers.
std::optional<uint64_t> number_behind(const std::string& word, const std::string& path) {
    std::ifstream file(path);
    for (std::string found; file >> found;) {
        uint64_t number = 0;
        if (found == word && file >> number) {
            return number;
        }
    }
    return {};
}

std::optional<uint64_t> system_memory() {
    const auto kibibytes = number_behind("MemAvailable:", "/proc/meminfo");
    return kibibytes ? std::optional(*kibibytes << 10) : std::nullopt;
}

// Files that nobody has looked at lately count as used, and make room at once.
std::optional<uint64_t> left(const std::string& limit, const std::string& used, uint64_t cached) {
    const auto most = number_in(limit);
    const auto now = number_in(used);
    if (!most || !now) {
        return {};
    }
    const uint64_t kept = *now - std::min(*now, cached);
    return *most - std::min(*most, kept);
}

std::optional<uint64_t> left_in_first_version(const std::string& folder) {
    return left(folder + "/memory.limit_in_bytes", folder + "/memory.usage_in_bytes",
                number_behind("total_inactive_file", folder + "/memory.stat").value_or(0));
}

std::optional<uint64_t> left_in_second_version(const std::string& folder) {
    return left(folder + "/memory.max", folder + "/memory.current",
                number_behind("inactive_file", folder + "/memory.stat").value_or(0));
}

// "12:memory:/name" of version 1 (cgroups(7)), "0::/name" of version 2.
std::optional<uint64_t> group_memory() {
    std::ifstream file("/proc/self/cgroup");
    for (std::string line; std::getline(file, line);) {
        const size_t first = line.find(':');
        const size_t second = line.find(':', first + 1);
        if (second == std::string::npos) {
            continue;
        }
        const std::string controllers = line.substr(first + 1, second - first - 1);
        const std::string name = line.substr(second + 1);
        const auto found = controllers.empty()       ? left_in_second_version("/sys/fs/cgroup" + name)
                           : controllers == "memory" ? left_in_first_version("/sys/fs/cgroup/memory" + name)
                                                     : std::nullopt;
        if (found) {
            return found;
        }
    }
    return {};
}

}  // namespace

std::optional<uint64_t> available_memory() {
    const auto system = system_memory();
    const auto group = group_memory();
    return system && group ? std::min(*system, *group) : system ? system : group;
}
