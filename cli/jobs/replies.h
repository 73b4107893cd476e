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

using Json = nlohmann::ordered_json;

enum class Operation { kAnalysis, kSound, kExport };

// The result or error reply of an operation, with all keys of its format; what was cut off is null.
Json read_reply(std::string_view reply, Operation operation);

bool is_error(std::string_view reply);

// The count of a started or progress reply; -1 when it was cut off.
int64_t frame_count_of(std::string_view reply);

// One line of valid JSON in UTF-8. Bytes that are not UTF-8 become U+FFFD.
std::string json_line(const Json& json);

// Values of a reply, with something in place of null.
std::string text_of(const Json& json, const char* key);
int64_t number_of(const Json& json, const char* key, int64_t otherwise = -1);
