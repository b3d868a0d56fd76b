// The records behind JSON trees.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <type_traits>

#include "dep/trell.h"

namespace trell {

enum class NodeType : uint8_t { EMPTY, BOOLEAN, INTEGER, REAL, TEXT, ARRAY, OBJECT };

// How deep arrays and objects may nest in JSON text, read or written.
constexpr int MAX_DEPTH = 64;

} // namespace trell

struct node {
    struct node *next; // in the array or object that it belongs to
    char *key;         // owned; null unless it is a member of an object
    trell::NodeType type;
    union {
        bool boolean;
        int64_t integer;
        double real;
    };
    // A text's bytes and their NUL follow the record.
};

namespace trell {

// An array or an object. Keys need not be unique: of several members the last one counts.
struct Container {
    struct node node;
    struct node *first;
    struct node *last;
    size_t count;
    // Where node_array_get left off, so that a walk by index is linear.
    struct node *reached;
    size_t reached_index;
};

static_assert(std::is_trivial_v<Container> && std::is_standard_layout_v<Container>);

// New nodes; null when memory is short.
struct node *new_node(NodeType type);
struct node *new_text(const char *bytes, size_t length);

// No tree is constant: the getters only promise not to change it.
char *text_of(const struct node &text);

// Null for a null node and for other types.
Container *container_of(const struct node *value, NodeType type);

// Adds a value, key included, that has no owner yet.
void append(Container &container, struct node *value);

} // namespace trell
