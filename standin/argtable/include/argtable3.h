/* Command-line parsing from a table of arguments: the part of argtable3 that the program uses, with
   argtable3's rules and texts. Arguments are positional texts or switches with a long name. */
#pragma once

#include <stddef.h>
#include <stdio.h>

extern "C" {

/* What every table entry begins with. */
struct arg_hdr {
    int is_end;
    const char *longopts; /* a switch's name; null for a positional text */
    const char *datatype; /* how syntax and glossary name a positional text */
    const char *glossary;
    int mincount; /* 1 where the argument must be given, else 0; none may be given twice */
};

struct arg_lit {
    struct arg_hdr hdr;
    int count; /* how often the switch was given: 0 or 1 */
};

struct arg_str {
    struct arg_hdr hdr;
    int count;         /* 0 or 1 */
    const char **sval; /* sval[0] is "" or the text in argv, which is not copied */
};

struct arg_error;

/* The last entry of a table. */
struct arg_end {
    struct arg_hdr hdr;
    int count; /* errors recorded, at most capacity */
    int capacity;
    struct arg_error *errors;
};

/* Entries; null when memory is short. No short options: shortopts is null, and so is longopts of a
   text. The strings are kept, not copied. arg_end takes the number of errors it has room for, at
   least 1: where there are more, its last place tells that there are too many. */
struct arg_str *arg_str0(const char *shortopts, const char *longopts, const char *datatype,
                         const char *glossary);
struct arg_str *arg_str1(const char *shortopts, const char *longopts, const char *datatype,
                         const char *glossary);
struct arg_lit *arg_lit0(const char *shortopts, const char *longopts, const char *glossary);
struct arg_end *arg_end(int maxcount);

/* 1 when an entry is null, else 0. The other calls take complete tables only. */
int arg_nullcheck(void **argtable);

/* Fills the entries from argv and returns the number of errors recorded. A switch may be
   abbreviated; "--" ends the switches, as does, with POSIXLY_CORRECT in the environment, the first
   text. Wrong switches are reported first, then surplus texts, and what is missing only where
   nothing else was wrong. */
int arg_parse(int argc, char **argv, void **argtable);

/* " NAME" or " [NAME]" for each entry, then suffix. */
void arg_print_syntax(FILE *stream, void **argtable, const char *suffix);
/* A line for each entry; format takes the name and the glossary text. */
void arg_print_glossary(FILE *stream, void **argtable, const char *format);
/* A line for each error, begun with the program's name. */
void arg_print_errors(FILE *stream, struct arg_end *end, const char *program);

/* Frees the entries and sets them to null. */
void arg_freetable(void **argtable, size_t count);
}
