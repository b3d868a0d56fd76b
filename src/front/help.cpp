#include "front/help.h"

#include <stdio.h>

#include "front/escape.h"
#include "link/connection.h"

namespace {

constexpr char help_template[] = "\t\t====Terminal Port Help====\r\n"
                                 "\tEscape-Char: %s\r\n"
                                 "\tEscape-Char q to quit\r\n"
                                 "\tEscape-Char b to send serial break\r\n"
                                 "\tEscape-Char d to list or disconnect other sessions\r\n"
                                 "\tEscape-Char s for port history (graphical terminal only)\r\n"
                                 "\tEscape-Char ? for this help\r\n";

} // namespace

char *help_text()
{
    char name[16] = "";
    escape_name(zorvad.escape_char, name, sizeof name - 1);
    char *text = nullptr;
    return asprintf(&text, help_template, name) < 0 ? nullptr : text;
}
