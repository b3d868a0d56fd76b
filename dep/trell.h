// What the program needs of libtrell, the platform's utility library: JSON trees and text, string
// lists and child processes with pipes. The library ships no header; this one declares its calls.
#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

extern "C" {

// A JSON value of any type, null included. A tree is owned through its root.
struct node;

// New values; null when memory is short. node_new_string copies its text.
struct node *node_new_object(void);
struct node *node_new_string(const char *text);

// Adds value under key (copied), which is new to the object; the object owns it from then on.
// Returns false, with value freed, when memory is short, object is null or no object, or value is
// null.
bool node_object_add(struct node *object, const char *key, struct node *value);

// The member, owned by the object; null when object is null, no object or has no such key. Of
// duplicates in parsed text the last one counts.
struct node *node_object_get(const struct node *object, const char *key);

// Getters never fail: a null node or another type gives "", 0, 0.0 or false. An integer is also
// read from a real (truncated, clamped to 64 bits) and a real from an integer. The text belongs to
// the node and ends at its first NUL.
const char *node_get_string(const struct node *value);
int64_t node_get_integer(const struct node *value);
double node_get_real(const struct node *value);
bool node_get_boolean(const struct node *value);

// Elements of an array, owned by it, in order. Anything but an array has none. node_array_next
// takes an element and returns the one after it, in constant time; null ends the walk.
size_t node_array_count(const struct node *array);
// The element at the index, null past the end. From one index to the next it takes constant time.
struct node *node_array_get(const struct node *array, size_t index);
struct node *node_array_first(const struct node *array);
struct node *node_array_next(const struct node *element);

// Frees the whole tree; null is allowed.
void node_free(struct node *value);

// Compact JSON text with members in the order they were added and "/" unescaped; freed with free,
// null when memory is short or value is null or nests too deep for the parser. It costs a few times
// the text's length. The program always passes 1 for compact.
char *json_stringify(const struct node *value, int compact);

// Parser for a stream of JSON values, whatever chunks they arrive in. The callback owns each value
// (node_free) and may not free or re-enter the parser. It is called with the value's last byte,
// except that a number outside of arrays and objects ends only with the byte after it.
struct json_stream;
struct json_stream *json_stream_new(void (*on_value)(struct node *value, void *context),
                                    void *context);
// Takes a chunk, calling back for every value completed in it. False on a syntax error, a value
// nested too deep or too large, or no memory: the rest of the chunk is dropped and the next one
// starts a new value.
bool json_stream_parse(struct json_stream *stream, const char *bytes, size_t length);
void json_stream_free(struct json_stream *stream);

// A list of texts, each copied in. Every call takes a null list: appending to it does nothing, its
// length is 0, what is made of it is null. Appending leaves the list as it was and returns false
// when memory is short.
struct string_list;
struct string_list *_sl_new(const char *first); // empty where first is null
bool _sl_append(struct string_list *list, const char *text);
bool sl_appendn(struct string_list *list, const char *const *texts, size_t count);
bool sl_append_printf(struct string_list *list, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
// Splits at each separator: n separators give n + 1 words, empty ones included.
struct string_list *sl_split(const char *text, char separator);
size_t sl_len(const struct string_list *list);
// A new list of the first count texts.
struct string_list *sl_copyn(const struct string_list *list, size_t count);
// All texts with separator between them; freed with free, null when memory is short.
char *sl_join(const struct string_list *list, const char *separator);
void sl_free(struct string_list *list);

// Starts the program whose path is arguments[0] with these arguments, the caller's environment plus
// the name, value, name, value, ... of environment (ended by null), and pipes on the standard
// input and output. The working directory and the standard error stay: the program passes null for
// both. The caller's ends are close-on-exec; the child gets no other descriptors, an empty signal
// mask and default actions. Returns the process id, or -1 with errno set and nothing left open.
pid_t process_spawn_pipe(const struct string_list *arguments, const char *const *environment,
                         const char *directory, int *in, int *out, int *error);
}
