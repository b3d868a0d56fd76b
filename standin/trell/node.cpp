#include "node.h"

#include <math.h>
#include <stdlib.h>
#include <string.h>

namespace trell {

struct node *new_node(NodeType type)
{
    const bool holds_others = type == NodeType::ARRAY || type == NodeType::OBJECT;
    const size_t size = holds_others ? sizeof(Container) : sizeof(struct node);
    auto *created = static_cast<struct node *>(calloc(1, size));
    if (created != nullptr) {
        created->type = type;
    }
    return created;
}

struct node *new_text(const char *bytes, size_t length)
{
    auto *created = static_cast<struct node *>(malloc(sizeof(struct node) + length + 1));
    if (created == nullptr) {
        return nullptr;
    }
    *created = {.type = NodeType::TEXT};
    char *text = text_of(*created);
    memcpy(text, bytes, length);
    text[length] = '\0';
    return created;
}

char *text_of(const struct node &text)
{
    return reinterpret_cast<char *>(const_cast<struct node *>(&text + 1));
}

Container *container_of(const struct node *value, NodeType type)
{
    const bool matches = value != nullptr && value->type == type;
    return matches ? reinterpret_cast<Container *>(const_cast<struct node *>(value)) : nullptr;
}

void append(Container &container, struct node *value)
{
    if (container.last == nullptr) {
        container.first = value;
    } else {
        container.last->next = value;
    }
    container.last = value;
    ++container.count;
}

} // namespace trell

using namespace trell;

namespace {

int64_t to_integer(double real)
{
    if (isnan(real)) {
        return 0;
    }
    // 2^63: the least double that does not fit, and with its sign changed the greatest that does.
    constexpr double LIMIT = 9223372036854775808.0;
    if (real >= LIMIT) {
        return INT64_MAX;
    }
    return real < -LIMIT ? INT64_MIN : static_cast<int64_t>(real);
}

} // namespace

struct node *node_new_object(void)
{
    return new_node(NodeType::OBJECT);
}

struct node *node_new_string(const char *text)
{
    return text == nullptr ? nullptr : new_text(text, strlen(text));
}

bool node_object_add(struct node *object, const char *key, struct node *value)
{
    if (value == nullptr) {
        return false;
    }
    Container *members = container_of(object, NodeType::OBJECT);
    char *copy = members == nullptr || key == nullptr ? nullptr : strdup(key);
    if (copy == nullptr) {
        node_free(value);
        return false;
    }
    value->key = copy;
    append(*members, value);
    return true;
}

struct node *node_object_get(const struct node *object, const char *key)
{
    const Container *members = container_of(object, NodeType::OBJECT);
    struct node *found = nullptr;
    if (members != nullptr && key != nullptr) {
        for (struct node *member = members->first; member != nullptr; member = member->next) {
            if (strcmp(member->key, key) == 0) {
                found = member;
            }
        }
    }
    return found;
}

const char *node_get_string(const struct node *value)
{
    return value != nullptr && value->type == NodeType::TEXT ? text_of(*value) : "";
}

int64_t node_get_integer(const struct node *value)
{
    if (value != nullptr && value->type == NodeType::INTEGER) {
        return value->integer;
    }
    return value != nullptr && value->type == NodeType::REAL ? to_integer(value->real) : 0;
}

double node_get_real(const struct node *value)
{
    if (value != nullptr && value->type == NodeType::REAL) {
        return value->real;
    }
    return static_cast<double>(node_get_integer(value));
}

bool node_get_boolean(const struct node *value)
{
    return value != nullptr && value->type == NodeType::BOOLEAN && value->boolean;
}

size_t node_array_count(const struct node *array)
{
    const Container *elements = container_of(array, NodeType::ARRAY);
    return elements != nullptr ? elements->count : 0;
}

struct node *node_array_get(const struct node *array, size_t index)
{
    Container *elements = container_of(array, NodeType::ARRAY);
    if (elements == nullptr || index >= elements->count) {
        return nullptr;
    }
    if (elements->reached == nullptr || index < elements->reached_index) {
        elements->reached = elements->first;
        elements->reached_index = 0;
    }
    for (; elements->reached_index < index; ++elements->reached_index) {
        elements->reached = elements->reached->next;
    }
    return elements->reached;
}

struct node *node_array_first(const struct node *array)
{
    const Container *elements = container_of(array, NodeType::ARRAY);
    return elements != nullptr ? elements->first : nullptr;
}

struct node *node_array_next(const struct node *element)
{
    return element != nullptr ? element->next : nullptr;
}

void node_free(struct node *value)
{
    // The members of whatever is freed go to the front of what is left to free: no recursion.
    struct node *rest = value;
    while (rest != nullptr) {
        struct node *current = rest;
        rest = current->next;
        if (current->type == NodeType::ARRAY || current->type == NodeType::OBJECT) {
            auto *container = reinterpret_cast<Container *>(current);
            if (container->first != nullptr) {
                container->last->next = rest;
                rest = container->first;
            }
        }
        free(current->key);
        free(current);
    }
}
