// The help text.
#pragma once

// A new help text that names the port's escape character, one byte where it has no name; freed with
// free. Null when memory is short.
[[nodiscard]] char *help_text();
