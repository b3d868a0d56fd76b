// What the simulator needs around json-c: ownership, and texts made of any bytes.
#pragma once

#include <json-c/json.h>

#include <memory>
#include <string>
#include <string_view>

namespace sim {

struct JsonRelease {
    void operator()(json_object *value) const { json_object_put(value); }
};
using Json = std::unique_ptr<json_object, JsonRelease>;

// The bytes as UTF-8: each byte that belongs to no valid character becomes U+FFFD.
std::string to_utf8(std::string_view bytes);

// A JSON string of any bytes; owned by the caller.
json_object *json_string(std::string_view bytes);

// The member's text, or the empty text where object is no object or has no such string.
std::string member_text(const json_object *object, const char *key);

// Compact text.
std::string to_text(json_object *value);

} // namespace sim
