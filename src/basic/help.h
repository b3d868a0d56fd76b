// Names of escape characters and the help text, shared by both front ends.
#pragma once

#include <stddef.h>

// Writes the display name of an escape character, such as "Ctrl-e", into name; a character without
// a name of its own is its own name. As with strncpy, a name of size characters or more is not
// terminated.
void escape_name(unsigned char character, char *name, size_t size);

// A new help text that names the port's escape character; freed with free. Null when memory is
// short.
[[nodiscard]] char *help_text();
