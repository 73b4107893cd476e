#include "media/share_header.h"

#include <algorithm>
#include <cstdlib>

std::string ShareHeader::text(const std::string& name) const {
    const auto found =
        std::find_if(common.begin(), common.end(), [&name](const auto& one) { return one.first == name; });
    return found == common.end() ? "" : found->second;
}

int64_t ShareHeader::integer(const std::string& name) const {
    return std::strtoll(text(name).c_str(), nullptr, 10);
}
