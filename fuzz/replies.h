// What the targets of the exported functions have in common.
#pragma once

#include <cstring>

#include "check.h"
#include "nq360.h"

namespace fuzz {

// The replies of the call that runs.
inline int ends = 0;
inline NQ360_STATE last_state = NQ360_STARTED;

inline void on_reply(NQ360_STATE state, const char* json) {
    const size_t length = std::strlen(json);
    require(ends == 0, "nothing follows the reply that ends the operation");
    require(length > 2 && length < 10240 && json[0] == '{', "a reply is a text that fits its buffer");
    ends += state >= NQ360_FINISHED ? 1 : 0;
    last_state = state;
}

// The same for a record of options.
inline int on_reply_with(NQ360_STATE state, const char* json, void* /*user*/) {
    on_reply(state, json);
    return 0;
}
inline void on_line(int /*level*/, const char* line, void* /*user*/) {
    require(line != nullptr, "a log line is a text");
}

// A record for two lens files, whose replies and log lines are looked at.
inline NQ360_EXPORT_OPTIONS record_of(const std::string inputs[2]) {
    NQ360_EXPORT_OPTIONS options;
    NQ360_export_options_init(&options);
    options.lens1 = inputs[0].c_str();
    options.lens2 = inputs[1].c_str();
    options.reply = on_reply_with;
    options.log = on_line;
    return options;
}

// Makes a call and tells whether it finished.
template <typename Call>
bool finishes(Call call) {
    ends = 0;
    call();
    require(ends == 1, "one reply ends the operation");
    return last_state == NQ360_FINISHED;
}

inline bool exists(const std::string& path) {
    return std::filesystem::exists(path);
}

}  // namespace fuzz
