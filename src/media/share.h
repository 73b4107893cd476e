// The shares of a movie, together again.
#pragma once

#include <string>
#include <vector>

#include "media/share_header.h"

struct ShareSet {
    std::vector<std::string> paths;  // in the order of the shares
    ShareHeader header;              // of one of them
};

// Finds out which share each file is. Throws a ShareFault that names the file that is damaged, of another movie or
// given twice, or tells which are missing. At least one path.
ShareSet gather_shares(const std::vector<std::string>& paths);
