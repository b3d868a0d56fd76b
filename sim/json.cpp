#include "sim/json.h"

namespace sim {
namespace {

// The length of the valid character at the start of bytes, 0 where there is none: no overlong
// forms, no surrogates, nothing past U+10FFFF.
size_t character_length(std::string_view bytes)
{
    auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[i]); };
    unsigned char first = byte(0);
    if (first < 0x80) {
        return 1;
    }
    size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || bytes.size() < length) {
        return 0;
    }
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    bool bad = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) > 0x9F) ||
               (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) > 0x8F);
    return bad ? 0 : length;
}

} // namespace

std::string to_utf8(std::string_view bytes)
{
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        size_t length = character_length(bytes);
        if (length == 0) {
            text += "\xEF\xBF\xBD";
        } else {
            text += bytes.substr(0, length);
        }
        bytes.remove_prefix(length == 0 ? 1 : length);
    }
    return text;
}

json_object *json_string(std::string_view bytes)
{
    std::string text = to_utf8(bytes);
    return json_object_new_string_len(text.data(), static_cast<int>(text.size()));
}

std::string member_text(const json_object *object, const char *key)
{
    json_object *value = nullptr;
    if (!json_object_is_type(object, json_type_object) ||
        !json_object_object_get_ex(object, key, &value) ||
        !json_object_is_type(value, json_type_string)) {
        return {};
    }
    return {json_object_get_string(value), static_cast<size_t>(json_object_get_string_len(value))};
}

std::string to_text(json_object *value)
{
    size_t length = 0;
    const char *text = json_object_to_json_string_length(
        value, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE, &length);
    return text == nullptr ? std::string("{}") : std::string(text, length);
}

} // namespace sim
