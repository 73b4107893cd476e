// What the shares of a movie say of how it is made, so that only those of one movie are joined, and with its metadata.
#pragma once

#include "media/share_header.h"
#include "metadata/keep.h"
#include "nq360.h"

// The options by their names, as far as the movie depends on them.
void add_options(const NQ360_EXPORT_OPTIONS& options, ShareHeader* header);

// The metadata that is to be written, and read again.
void add_metadata(const MovieTexts& texts, ShareHeader* header);
MovieTexts metadata_in(const ShareHeader& header);
