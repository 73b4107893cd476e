#include "projection/large_pages.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

// Smaller matrices are left to the allocator, which reuses their memory.
constexpr size_t kWorthwhile = size_t{4} << 20;

}  // namespace

void create_large(cv::Mat* matrix, int rows, int cols, int type) {
    matrix->create(rows, cols, type);
    const size_t bytes = matrix->total() * matrix->elemSize();
    if (bytes < kWorthwhile) {
        return;
    }
    // Whole pages only.
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t before = (page - reinterpret_cast<uintptr_t>(matrix->data) % page) % page;
    // A failing hint changes nothing but the time.
    madvise(matrix->data + before, (bytes - before) / page * page, MADV_HUGEPAGE);
}
