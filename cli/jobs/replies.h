// The library's replies as JSON that is valid whatever the files' texts hold.
//
// A reply is a fixed format filled with texts. Some go in as they stand in the file (the camera's maker and
// model, messages of other libraries), so they may bring quotes, backslashes, control characters and bytes that
// are not UTF-8; and a reply that is too long is cut. So replies are read along their format's keys, not parsed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "nq360.h"

using Json = nlohmann::ordered_json;

enum class Operation { kAnalysis, kSound, kExport };

// The result or error reply of an operation, with all keys of its format; what was cut off is null.
Json read_reply(std::string_view reply, Operation operation);

// Any reply of an operation, its state first: "started", "progress", "finished", "cancelled" or "failed".
Json read_reply_with_state(NQ360_STATE state, std::string_view reply, Operation operation);

// The reply of a match: the library's own JSON, or the error reply of an export.
Json read_match(std::string_view reply);

bool is_error(std::string_view reply);

// The whole number of the last such key; -1 when it was cut off.
int64_t last_number(std::string_view reply, const std::string& key);

// One line of valid JSON in UTF-8. Bytes that are not UTF-8 become U+FFFD.
std::string json_line(const Json& json);

// Values of a reply, with something in place of null.
std::string text_of(const Json& json, const char* key);
int64_t number_of(const Json& json, const char* key, int64_t otherwise = -1);
