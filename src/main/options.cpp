#include "main/options.h"

#include <stdio.h>

#include "dep/argtable.h"
#include "front/sessions.h"

uint8_t use_basic_interface;

namespace {

constexpr char PROGRAM[] = "zorvad-client";

// Freed through the array; the order is that of the syntax line.
union ArgumentTable {
    void *entries[5];
    struct {
        struct arg_str *port;
        struct arg_str *right;
        struct arg_lit *help;
        struct arg_lit *basic_interface;
        struct arg_end *end;
    };
};
ArgumentTable table;

void print_usage(void **entries, const char *description)
{
    fprintf(stderr, "%s\n", description);
    fprintf(stderr, "Usage: %s", PROGRAM);
    arg_print_syntax(stderr, entries, "\n\n");
    arg_print_glossary(stderr, entries, "  %-25s %s\n");
}

} // namespace

bool options_init()
{
    table.port = arg_str1(nullptr, nullptr, "PORT", "the serial key of the port to connect to");
    table.right = arg_str0(nullptr, nullptr, "ACCESS-RIGHT", "the access rights of the port user");
    table.help = arg_lit0(nullptr, "help", "display this help and exit");
    table.basic_interface =
        arg_lit0(nullptr, "basic-interface", "force the basic interface, rather than the TUI");
    table.end = arg_end(2);
    return arg_nullcheck(table.entries) == 0;
}

CommandLine options_parse(int argument_count, char **arguments)
{
    const int errors = arg_parse(argument_count, arguments, table.entries);
    if (table.help->count > 0) {
        print_usage(table.entries, "Connect to a console port.\n");
        return CommandLine::HELP;
    }
    if (errors > 0) {
        arg_print_errors(stderr, table.end, PROGRAM);
        fprintf(stderr, "Try '%s --help' for more information.\n", PROGRAM);
        return CommandLine::WRONG;
    }
    if (table.right->count > 0) {
        access_right = table.right->sval[0];
    }
    if (table.basic_interface->count > 0) {
        use_basic_interface = 1;
    }
    return CommandLine::RUN;
}

const char *options_port()
{
    return table.port->sval[0];
}

void options_free()
{
    arg_freetable(table.entries, 5);
}
