#include "node.h"

#include <string.h>

#include <json-c/json.h>

using namespace trell;

namespace {

// Turns a value into json-c's, *result, which is null for a JSON null. False when memory is short
// or the value nests deeper than depth more levels; there is nothing to free then.
bool to_json_c(const struct node &value, int depth, struct json_object **result);

bool add_members(const struct node &value, int depth, struct json_object *target)
{
    const auto &container = reinterpret_cast<const Container &>(value);
    for (const struct node *member = container.first; member != nullptr; member = member->next) {
        struct json_object *converted = nullptr;
        if (depth == 0 || !to_json_c(*member, depth - 1, &converted)) {
            return false;
        }
        const int failed = value.type == NodeType::OBJECT
                               ? json_object_object_add(target, member->key, converted)
                               : json_object_array_add(target, converted);
        if (failed != 0) {
            json_object_put(converted);
            return false;
        }
    }
    return true;
}

bool to_json_c(const struct node &value, int depth, struct json_object **result)
{
    *result = nullptr;
    switch (value.type) {
    case NodeType::EMPTY:
        return true;
    case NodeType::BOOLEAN:
        *result = json_object_new_boolean(value.boolean);
        break;
    case NodeType::INTEGER:
        *result = json_object_new_int64(value.integer);
        break;
    case NodeType::REAL:
        *result = json_object_new_double(value.real);
        break;
    case NodeType::TEXT:
        *result = json_object_new_string(text_of(value));
        break;
    case NodeType::ARRAY:
        *result = json_object_new_array();
        break;
    case NodeType::OBJECT:
        *result = json_object_new_object();
        break;
    }
    const bool holds_others = value.type == NodeType::ARRAY || value.type == NodeType::OBJECT;
    if (*result != nullptr && holds_others && !add_members(value, depth, *result)) {
        json_object_put(*result);
        return false;
    }
    return *result != nullptr;
}

} // namespace

char *json_stringify(const struct node *value, int compact)
{
    struct json_object *converted = nullptr;
    if (value == nullptr || !to_json_c(*value, MAX_DEPTH, &converted)) {
        return nullptr;
    }
    const int layout = compact != 0 ? JSON_C_TO_STRING_PLAIN : JSON_C_TO_STRING_PRETTY;
    const char *text =
        json_object_to_json_string_ext(converted, layout | JSON_C_TO_STRING_NOSLASHESCAPE);
    char *copy = text != nullptr ? strdup(text) : nullptr;
    json_object_put(converted);
    return copy;
}
