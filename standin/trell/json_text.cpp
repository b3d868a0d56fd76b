#include "node.h"

#include <inttypes.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

using namespace trell;

namespace {

// Text that grows; null once memory was short.
struct Output {
    char *bytes;
    size_t length;
    size_t capacity;
};

void put(Output &output, const char *bytes, size_t length)
{
    if (output.bytes != nullptr && output.capacity - output.length <= length) {
        const size_t capacity = 2 * (output.length + length + 1);
        char *grown = static_cast<char *>(realloc(output.bytes, capacity));
        if (grown == nullptr) {
            free(output.bytes);
        }
        output.bytes = grown;
        output.capacity = capacity;
    }
    if (output.bytes != nullptr) {
        memcpy(output.bytes + output.length, bytes, length);
        output.length += length;
    }
}

void put(Output &output, const char *text)
{
    put(output, text, strlen(text));
}

void put_escape(Output &output, char byte)
{
    constexpr const char *BYTES = "\"\\\b\f\n\r\t";
    constexpr const char *LETTERS = "\"\\bfnrt";
    char escape[sizeof "\\u0000"];
    if (const char *known = strchr(BYTES, byte)) {
        snprintf(escape, sizeof escape, "\\%c", LETTERS[known - BYTES]);
    } else {
        snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(byte));
    }
    put(output, escape);
}

void put_text(Output &output, const char *text)
{
    put(output, "\"");
    while (*text != '\0') {
        const char *plain = text;
        while (static_cast<unsigned char>(*text) >= ' ' && *text != '"' && *text != '\\') {
            ++text;
        }
        put(output, plain, static_cast<size_t>(text - plain));
        if (*text != '\0') {
            put_escape(output, *text++);
        }
    }
    put(output, "\"");
}

// False when the value nests deeper than depth more levels.
bool put_value(Output &output, const struct node &value, int depth);

bool put_members(Output &output, const Container &container, int depth)
{
    const bool is_object = container.node.type == NodeType::OBJECT;
    put(output, is_object ? "{" : "[");
    for (const struct node *member = container.first; member != nullptr; member = member->next) {
        put(output, member != container.first ? "," : "");
        if (is_object) {
            put_text(output, member->key);
            put(output, ":");
        }
        if (depth == 0 || !put_value(output, *member, depth - 1)) {
            return false;
        }
    }
    put(output, is_object ? "}" : "]");
    return true;
}

bool put_value(Output &output, const struct node &value, int depth)
{
    char number[32];
    switch (value.type) {
    case NodeType::EMPTY:
        put(output, "null");
        return true;
    case NodeType::BOOLEAN:
        put(output, value.boolean ? "true" : "false");
        return true;
    case NodeType::INTEGER:
        snprintf(number, sizeof number, "%" PRId64, value.integer);
        put(output, number);
        return true;
    case NodeType::REAL:
        snprintf(number, sizeof number, "%.17g", value.real);
        put(output, isfinite(value.real) ? number : "null"); // JSON has no infinity
        return true;
    case NodeType::TEXT:
        put_text(output, text_of(value));
        return true;
    default:
        return put_members(output, reinterpret_cast<const Container &>(value), depth);
    }
}

} // namespace

char *json_stringify(const struct node *value, int)
{
    constexpr size_t FIRST_CAPACITY = 128;
    Output output{static_cast<char *>(malloc(FIRST_CAPACITY)), 0, FIRST_CAPACITY};
    if (value == nullptr || !put_value(output, *value, MAX_DEPTH)) {
        free(output.bytes);
        return nullptr;
    }
    put(output, "", 1);
    return output.bytes;
}
