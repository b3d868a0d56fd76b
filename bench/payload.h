// What ports print, generated: the same bytes in every run. None holds MARK_BYTES or Greek letters,
// which the measurements look for on the terminal.
#pragma once

#include <stddef.h>
#include <string>

enum class Payload { BOOT_LOG, LISTING, TOP, DENSE, CJK, PASTE, COMPILER };

constexpr char MARK_BYTES[] = "~`";

// About that many bytes, and nothing cut in two.
std::string make_payload(Payload kind, size_t size);
