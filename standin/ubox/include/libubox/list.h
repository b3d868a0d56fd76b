// Intrusive doubly linked lists. A list is a list_head of its own, whose next is the first element
// and whose prev is the last; an element is a record with a list_head member. Nothing is allocated.
#pragma once

#include <stdbool.h>
#include <stddef.h>

struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

static inline void INIT_LIST_HEAD(struct list_head *list)
{
    list->next = list;
    list->prev = list;
}

static inline bool list_empty(const struct list_head *list)
{
    return list->next == list;
}

// Puts `entry` at the front of `list`; or, given an element as `list`, right behind that element.
static inline void list_add(struct list_head *entry, struct list_head *list)
{
    entry->prev = list;
    entry->next = list->next;
    list->next->prev = entry;
    list->next = entry;
}

// Puts `entry` at the end of `list`; or, given an element as `list`, right before that element.
static inline void list_add_tail(struct list_head *entry, struct list_head *list)
{
    list_add(entry, list->prev);
}

// Takes `entry` out of its list; its links are null afterwards, so it must not be taken out twice.
static inline void list_del(struct list_head *entry)
{
    entry->prev->next = entry->next;
    entry->next->prev = entry->prev;
    entry->next = NULL;
    entry->prev = NULL;
}

// The record of `type` whose `member` is at `pointer`.
#define container_of(pointer, type, member) ((type *)((char *)(pointer)-offsetof(type, member)))

#define list_entry(pointer, type, member) container_of(pointer, type, member)
// The first and the last record of a list that is not empty.
#define list_first_entry(list, type, member) list_entry((list)->next, type, member)
#define list_last_entry(list, type, member) list_entry((list)->prev, type, member)
#define list_next_entry(record, member)                                                            \
    list_entry((record)->member.next, __typeof__(*(record)), member)

// Walks over all records of `list`; the body must not take the current one out.
#define list_for_each_entry(record, list, member)                                                  \
    for (record = list_first_entry(list, __typeof__(*record), member); &record->member != (list);  \
         record = list_next_entry(record, member))

// The body may take the current record out and free it; `following` must stay in the list.
#define list_for_each_entry_safe(record, following, list, member)                                  \
    for (record = list_first_entry(list, __typeof__(*record), member),                             \
        following = list_next_entry(record, member);                                               \
         &record->member != (list);                                                                \
         record = following, following = list_next_entry(following, member))
