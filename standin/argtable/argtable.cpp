#include <argtable3.h>

#include <stdlib.h>
#include <string.h>

// What is printed of it: the format has one %s for the text, which is not owned.
struct arg_error {
    const char *format;
    const char *text;
};

namespace {

// Walks through the arguments, telling switches from texts.
struct Scan {
    int argc;
    char **argv;
    int index = 1;
    bool texts_only = false;
    bool first_text_ends_switches = getenv("POSIXLY_CORRECT") != nullptr;
};

struct Argument {
    const char *value; // null at the end
    bool is_switch;
};

arg_hdr *entry_of(void *entry)
{
    return static_cast<arg_hdr *>(entry);
}

bool is_positional(const arg_hdr &entry)
{
    return entry.longopts == nullptr;
}

struct arg_end *end_of(void **argtable)
{
    while (!entry_of(*argtable)->is_end) {
        ++argtable;
    }
    return static_cast<struct arg_end *>(*argtable);
}

void add_error(struct arg_end &end, const char *format, const char *text)
{
    if (end.count < end.capacity) {
        end.errors[end.count++] = {format, text};
    } else {
        end.errors[end.capacity - 1] = {"too many errors to display\n%s", ""};
    }
}

Argument next_argument(Scan &scan)
{
    if (scan.index >= scan.argc) {
        return {nullptr, false};
    }
    const char *value = scan.argv[scan.index++];
    if (scan.texts_only) {
        return {value, false};
    }
    if (strcmp(value, "--") == 0) {
        scan.texts_only = true;
        return next_argument(scan);
    }
    const bool is_switch = value[0] == '-' && value[1] != '\0';
    scan.texts_only = !is_switch && scan.first_text_ends_switches;
    return {value, is_switch};
}

// The switch of that name, or the only one that begins with it.
arg_lit *find_switch(void **argtable, const char *name)
{
    const size_t length = strlen(name);
    arg_lit *found = nullptr;
    for (; !entry_of(*argtable)->is_end; ++argtable) {
        const arg_hdr &entry = *entry_of(*argtable);
        if (is_positional(entry) || strncmp(entry.longopts, name, length) != 0) {
            continue;
        }
        if (entry.longopts[length] == '\0') {
            return static_cast<arg_lit *>(*argtable);
        }
        if (found != nullptr) {
            return nullptr;
        }
        found = static_cast<arg_lit *>(*argtable);
    }
    return found;
}

void parse_switch(void **argtable, struct arg_end &end, const char *value)
{
    if (value[1] != '-') {
        for (const char *letter = value + 1; *letter != '\0'; ++letter) {
            add_error(end, "invalid option \"-%.1s\"\n", letter);
        }
        return;
    }
    // No name contains "=", so a switch that is given a value is not found.
    arg_lit *found = find_switch(argtable, value + 2);
    if (found == nullptr) {
        add_error(end, "invalid option \"%s\"\n", value);
    } else if (found->count > 0) {
        add_error(end, "extraneous option --%s\n", found->hdr.longopts);
    } else {
        found->count = 1;
    }
}

void parse_texts(void **argtable, struct arg_end &end, Scan scan)
{
    bool filled = false; // and nothing is too many yet
    for (Argument argument = next_argument(scan); argument.value != nullptr;
         argument = next_argument(scan)) {
        if (argument.is_switch) {
            continue;
        }
        while (!entry_of(*argtable)->is_end && !is_positional(*entry_of(*argtable))) {
            ++argtable;
        }
        if (!entry_of(*argtable)->is_end) {
            auto *text = static_cast<arg_str *>(*argtable++);
            text->count = 1;
            text->sval[0] = argument.value;
            filled = true;
        } else if (filled) {
            add_error(end, "excess option %s\n", argument.value);
            filled = false;
        } else {
            add_error(end, "unexpected argument \"%s\"\n", argument.value);
        }
    }
}

int &count_of(void *entry)
{
    return is_positional(*entry_of(entry)) ? static_cast<arg_str *>(entry)->count
                                           : static_cast<arg_lit *>(entry)->count;
}

void reset(void **argtable, struct arg_end &end)
{
    for (; !entry_of(*argtable)->is_end; ++argtable) {
        count_of(*argtable) = 0;
    }
    end.count = 0;
}

void check_missing(void **argtable, struct arg_end &end)
{
    for (; !entry_of(*argtable)->is_end; ++argtable) {
        const arg_hdr *entry = entry_of(*argtable);
        if (count_of(*argtable) < entry->mincount) {
            add_error(end, "missing option %s\n", entry->datatype); // a switch never is;
        }
    }
}

const char *dashes_of(const arg_hdr &entry)
{
    return is_positional(entry) ? "" : "--";
}

const char *name_of(const arg_hdr &entry)
{
    return is_positional(entry) ? entry.datatype : entry.longopts;
}

arg_str *text_entry(int mincount, const char *datatype, const char *glossary)
{
    auto *text = static_cast<arg_str *>(calloc(1, sizeof(arg_str) + sizeof(const char *)));
    if (text == nullptr) {
        return nullptr;
    }
    text->hdr = {.datatype = datatype, .glossary = glossary, .mincount = mincount};
    text->sval = reinterpret_cast<const char **>(text + 1);
    text->sval[0] = "";
    return text;
}

} // namespace

struct arg_str *arg_str0(const char *, const char *, const char *datatype, const char *glossary)
{
    return text_entry(0, datatype, glossary);
}

struct arg_str *arg_str1(const char *, const char *, const char *datatype, const char *glossary)
{
    return text_entry(1, datatype, glossary);
}

struct arg_lit *arg_lit0(const char *, const char *longopts, const char *glossary)
{
    auto *lit = static_cast<arg_lit *>(calloc(1, sizeof(arg_lit)));
    if (lit != nullptr) {
        lit->hdr = {.longopts = longopts, .glossary = glossary};
    }
    return lit;
}

struct arg_end *arg_end(int maxcount)
{
    const size_t errors = static_cast<size_t>(maxcount) * sizeof(arg_error);
    auto *end = static_cast<struct arg_end *>(calloc(1, sizeof(struct arg_end) + errors));
    if (end != nullptr) {
        end->hdr.is_end = 1;
        end->capacity = maxcount;
        end->errors = reinterpret_cast<arg_error *>(end + 1);
    }
    return end;
}

int arg_nullcheck(void **argtable)
{
    while (*argtable != nullptr && !entry_of(*argtable)->is_end) {
        ++argtable;
    }
    return *argtable == nullptr;
}

int arg_parse(int argc, char **argv, void **argtable)
{
    struct arg_end &end = *end_of(argtable);
    reset(argtable, end);
    Scan scan{argc, argv};
    for (Argument argument = next_argument(scan); argument.value != nullptr;
         argument = next_argument(scan)) {
        if (argument.is_switch) {
            parse_switch(argtable, end, argument.value);
        }
    }
    parse_texts(argtable, end, Scan{argc, argv});
    if (end.count == 0) {
        check_missing(argtable, end);
    }
    return end.count;
}

void arg_print_syntax(FILE *stream, void **argtable, const char *suffix)
{
    for (; !entry_of(*argtable)->is_end; ++argtable) {
        const arg_hdr &entry = *entry_of(*argtable);
        fprintf(stream, entry.mincount > 0 ? " %s%s" : " [%s%s]", dashes_of(entry), name_of(entry));
    }
    fputs(suffix, stream);
}

void arg_print_glossary(FILE *stream, void **argtable, const char *format)
{
    for (; !entry_of(*argtable)->is_end; ++argtable) {
        const arg_hdr &entry = *entry_of(*argtable);
        char name[64];
        snprintf(name, sizeof(name), "%s%s", dashes_of(entry), name_of(entry));
        fprintf(stream, format, name, entry.glossary);
    }
}

void arg_print_errors(FILE *stream, struct arg_end *end, const char *program)
{
    for (int i = 0; i < end->count; ++i) {
        fprintf(stream, "%s: ", program);
        fprintf(stream, end->errors[i].format, end->errors[i].text);
    }
}

void arg_freetable(void **argtable, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        free(argtable[i]);
        argtable[i] = nullptr;
    }
}
