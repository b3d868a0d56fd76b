#include "basic/port_info.h"

#include <stdlib.h>
#include <string.h>

#include "basic/console.h"
#include "front/escape.h"
#include "link/connection.h"
#include "link/owned.h"
#include "text/printable.h"

namespace {

void print_greeting(const char *label)
{
    char name[16] = "";
    escape_name(zorvad.escape_char, name, sizeof name);
    const Text shown_label(printable_copy(label));
    const Text shown_name(printable_latin1(name));
    if (shown_label && shown_name) {
        (void)ustream_printf(&stdout_stream.stream, "Connected to port: %s - Escape key is: %s\r\n",
                             shown_label.get(), shown_name.get());
    }
}

void free_names(char **names, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        free(names[i]);
    }
    free(names);
}

// Copies of all names, or null when memory is short.
char **copy_names(node *outlets, size_t count)
{
    char **names = static_cast<char **>(calloc(count, sizeof *names));
    if (names == nullptr) {
        return nullptr;
    }
    for (size_t i = 0; i < count; i++) {
        names[i] = strdup(node_get_string(node_array_get(outlets, i)));
        if (names[i] == nullptr) {
            free_names(names, i);
            return nullptr;
        }
    }
    return names;
}

void take_outlets(node *outlets)
{
    const size_t count = node_array_count(outlets);
    (void)ustream_printf(&stdout_stream.stream, "%zu Outlet(s) available for control\n", count);
    if (count == 0 || zorvad.outlets != nullptr) {
        return;
    }
    zorvad.outlets = copy_names(outlets, count);
    if (zorvad.outlets == nullptr) {
        ulog(LOG_ERR, "Could not allocate outlets\n");
        return;
    }
    zorvad.outlet_count = count;
}

} // namespace

void basic_port_info_reply(node *reply, void *)
{
    if (reply == nullptr) {
        return;
    }
    connection_take_escape(zorvad, reply);
    print_greeting(node_get_string(node_object_get(reply, "label")));
    if (node *outlets = node_object_get(reply, "outlets")) {
        take_outlets(outlets);
    }
}
