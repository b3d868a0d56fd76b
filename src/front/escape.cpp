#include "front/escape.h"

#include <stdio.h>
#include <string.h>

#include "link/command.h"
#include "link/connection.h"

uint8_t escape_pending;

namespace {

struct EscapeName {
    unsigned char key;
    const char *name; // null ends the table
};

constexpr EscapeName escape_names[] = {
    {0x01, "Ctrl-a"}, {0x02, "Ctrl-b"}, {0x03, "Ctrl-c"},  {0x04, "Ctrl-d"}, {0x05, "Ctrl-e"},
    {0x06, "Ctrl-f"}, {0x07, "Ctrl-g"}, {0x08, "Ctrl-h"},  {0x09, "Ctrl-i"}, {0x0a, "Ctrl-j"},
    {0x0b, "Ctrl-k"}, {0x0c, "Ctrl-l"}, {0x0d, "Ctrl-m"},  {0x0e, "Ctrl-n"}, {0x0f, "Ctrl-o"},
    {0x10, "Ctrl-p"}, {0x11, "Ctrl-q"}, {0x12, "Ctrl-r"},  {0x13, "Ctrl-s"}, {0x14, "Ctrl-t"},
    {0x15, "Ctrl-u"}, {0x16, "Ctrl-v"}, {0x17, "Ctrl-w"},  {0x18, "Ctrl-x"}, {0x19, "Ctrl-y"},
    {0x1a, "Ctrl-z"}, {0x1b, "Ctrl-["}, {0x1c, "Ctrl-\\"}, {0x1d, "Ctrl-]"}, {0x1e, "Ctrl-^"},
    {0x1f, "Ctrl-_"}, {0x20, "SPACE"},  {0x7f, "Ctrl-?"},  {0, nullptr},
};

} // namespace

void escape_name(unsigned char character, char *name, size_t size)
{
    for (const EscapeName *row = escape_names; row->name != nullptr; row++) {
        if (row->key == character) {
            strncpy(name, row->name, size);
            return;
        }
    }
    snprintf(name, size, "%c", character);
}

void send_break()
{
    if (send_bare_command(zorvad, "BREAK", nullptr, nullptr) != 0) {
        ulog(LOG_ERR, "Could not send serial break command\n");
    }
}
