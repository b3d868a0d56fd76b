// zorvad-bench [NAME...]: measures the figures named, or all, and prints them as a table.

#include <exception>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include "bench/figures.h"
#include "bench/table.h"

namespace {

struct Named {
    const char *name;
    void (*measure)();
};

constexpr Named figures[] = {
    {"basic-terminal", basic_to_terminal},
    {"basic-pipe", basic_to_pipe},
    {"basic-paste", basic_paste},
    {"emulated-output", emulated_output},
    {"emulated-paste", emulated_paste},
    {"echo", key_echo},
    {"flood", key_under_flood},
    {"flood-slow", key_under_flood_slow},
    {"line", line_speed},
    {"slow", slow_terminal},
    {"typing", typing},
    {"start-up", start_up},
    {"memory", memory},
    {"idle", idle},
    {"history", history},
    {"size", size},
    {"peers", peers},
};

bool is_known(const char *name)
{
    for (const Named &figure : figures) {
        if (strcmp(figure.name, name) == 0) {
            return true;
        }
    }
    return false;
}

int usage()
{
    fprintf(stderr, "usage: scripts/bench [NAME...]\nnames:");
    for (const Named &figure : figures) {
        fprintf(stderr, " %s", figure.name);
    }
    fprintf(stderr, "\n");
    return 2;
}

bool is_wanted(const char *name, int count, char **names)
{
    for (int i = 1; i < count; i++) {
        if (strcmp(names[i], name) == 0) {
            return true;
        }
    }
    return count == 1;
}

} // namespace

int main(int argument_count, char **arguments)
{
    for (int i = 1; i < argument_count; i++) {
        if (!is_known(arguments[i])) {
            return usage();
        }
    }
    signal(SIGPIPE, SIG_IGN);
    print_table_head();
    int failed = 0;
    for (const Named &figure : figures) {
        if (!is_wanted(figure.name, argument_count, arguments)) {
            continue;
        }
        try {
            figure.measure();
        } catch (const std::exception &error) {
            fprintf(stderr, "%s: %s\n", figure.name, error.what());
            failed = 1;
        }
    }
    return failed;
}
