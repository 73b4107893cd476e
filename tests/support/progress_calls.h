// What a job tells of its progress below the replies.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

#include "base/progress.h"

namespace test_support {

struct ProgressCall {
    NQ360_STATE state;
    int64_t frames;

    bool operator==(const ProgressCall& other) const { return state == other.state && frames == other.frames; }
};
inline std::ostream& operator<<(std::ostream& out, const ProgressCall& call) {
    return out << "state " << call.state << ", " << call.frames << " frames";
}
using ProgressCalls = std::vector<ProgressCall>;

// What `job` told, in order. `on_call` sees each when it is told; nobody wants the job to stop.
inline ProgressCalls progress_of(const std::function<void(const ReportProgress&)>& job,
                                 const std::function<void()>& on_call = nullptr) {
    ProgressCalls calls;
    job([&](NQ360_STATE state, int64_t frames) {
        calls.push_back({state, frames});
        if (on_call) {
            on_call();
        }
        return false;
    });
    return calls;
}

}  // namespace test_support
