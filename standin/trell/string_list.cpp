#include "string_list.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "dep/trell.h"

namespace {

// Makes room for one more text and the null after it.
bool reserve(struct string_list &list)
{
    if (list.count + 2 <= list.capacity) {
        return true;
    }
    const size_t capacity = 2 * (list.count + 1);
    auto *texts = static_cast<char **>(realloc(list.texts, capacity * sizeof(char *)));
    if (texts == nullptr) {
        return false;
    }
    list.texts = texts;
    list.capacity = capacity;
    return true;
}

// Adds a text from malloc, which is freed where that fails; null is a failure already.
bool append_owned(struct string_list *list, char *text)
{
    if (list == nullptr || text == nullptr || !reserve(*list)) {
        free(text);
        return false;
    }
    list->texts[list->count++] = text;
    list->texts[list->count] = nullptr;
    return true;
}

void truncate(struct string_list &list, size_t count)
{
    while (list.count > count) {
        free(list.texts[--list.count]);
        list.texts[list.count] = nullptr;
    }
}

struct string_list *new_list()
{
    auto *list = static_cast<struct string_list *>(calloc(1, sizeof(struct string_list)));
    if (list == nullptr || !reserve(*list)) {
        free(list);
        return nullptr;
    }
    list->texts[0] = nullptr;
    return list;
}

} // namespace

struct string_list *_sl_new(const char *first)
{
    struct string_list *list = new_list();
    if (list != nullptr && first != nullptr && !_sl_append(list, first)) {
        sl_free(list);
        return nullptr;
    }
    return list;
}

bool _sl_append(struct string_list *list, const char *text)
{
    return append_owned(list, text != nullptr ? strdup(text) : nullptr);
}

bool sl_appendn(struct string_list *list, const char *const *texts, size_t count)
{
    if (list == nullptr) {
        return false;
    }
    const size_t before = list->count;
    for (size_t i = 0; i < count; ++i) {
        if (!_sl_append(list, texts[i])) {
            truncate(*list, before);
            return false;
        }
    }
    return true;
}

bool sl_append_printf(struct string_list *list, const char *format, ...)
{
    char *text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    return append_owned(list, length < 0 ? nullptr : text);
}

struct string_list *sl_split(const char *text, char separator)
{
    struct string_list *list = text != nullptr ? new_list() : nullptr;
    while (list != nullptr) {
        const char *end = strchrnul(text, separator);
        if (!append_owned(list, strndup(text, static_cast<size_t>(end - text)))) {
            sl_free(list);
            return nullptr;
        }
        if (*end == '\0') {
            break;
        }
        text = end + 1;
    }
    return list;
}

size_t sl_len(const struct string_list *list)
{
    return list != nullptr ? list->count : 0;
}

struct string_list *sl_copyn(const struct string_list *list, size_t count)
{
    struct string_list *copy = list != nullptr ? new_list() : nullptr;
    if (copy != nullptr &&
        !sl_appendn(copy, list->texts, count < list->count ? count : list->count)) {
        sl_free(copy);
        return nullptr;
    }
    return copy;
}

char *sl_join(const struct string_list *list, const char *separator)
{
    if (list == nullptr) {
        return nullptr;
    }
    const size_t separator_length = strlen(separator);
    size_t length = 0;
    for (size_t i = 0; i < list->count; ++i) {
        length += strlen(list->texts[i]) + separator_length;
    }
    auto *joined = static_cast<char *>(malloc(length + 1));
    if (joined == nullptr) {
        return nullptr;
    }
    char *end = joined;
    for (size_t i = 0; i < list->count; ++i) {
        end = stpcpy(end, i > 0 ? separator : "");
        end = stpcpy(end, list->texts[i]);
    }
    *end = '\0';
    return joined;
}

void sl_free(struct string_list *list)
{
    if (list != nullptr) {
        truncate(*list, 0);
        free(list->texts);
        free(list);
    }
}
