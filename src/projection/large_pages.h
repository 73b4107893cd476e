// Memory for large matrices.
#pragma once

#include <opencv2/core.hpp>

// Like cv::Mat::create, and asks the system for large pages: a table of a hundred megabytes is touched once,
// and with 4 KiB pages the faults cost more than the work. No more than a hint.
void create_large(cv::Mat* matrix, int rows, int cols, int type);
