#!/usr/bin/env python3
"""Prints the runs of include/termbox2/widths.h.

Sources: UnicodeData.txt and EastAsianWidth.txt of Debian's unicode-data, and the installed
libvterm, which is asked for the columns that it gives each code point.
"""
import ctypes
import textwrap

UNICODE = "/usr/share/unicode/"
LIMIT = 0x110000
INDENT = "    "
UNASSIGNED, COMBINING, NARROW, WIDE, NARROW_UNSURE, WIDE_UNSURE = range(6)


def unicode_categories():
    category = [None] * LIMIT
    first = 0
    for line in open(UNICODE + "UnicodeData.txt", encoding="utf-8"):
        fields = line.split(";")
        code = int(fields[0], 16)
        if fields[1].endswith("First>"):
            first = code
            continue
        start = first if fields[1].endswith("Last>") else code
        category[start : code + 1] = [fields[2]] * (code + 1 - start)
    return category


def unicode_wide():
    wide = bytearray(LIMIT)
    for line in open(UNICODE + "EastAsianWidth.txt", encoding="utf-8"):
        entry = line.split("#")[0].strip()
        if entry and entry.split(";")[1].strip() in "WF":
            ends = entry.split(";")[0].strip().split("..")
            start, end = int(ends[0], 16), int(ends[-1], 16) + 1
            wide[start:end] = b"\1" * (end - start)
    return wide


def emulator_wide():
    class Position(ctypes.Structure):
        _fields_ = [("row", ctypes.c_int), ("col", ctypes.c_int)]

    library = ctypes.CDLL("libvterm.so.0")
    library.vterm_new.restype = library.vterm_obtain_state.restype = ctypes.c_void_p
    terminal = ctypes.c_void_p(library.vterm_new(2, 10))
    library.vterm_set_utf8(terminal, 1)
    state = ctypes.c_void_p(library.vterm_obtain_state(terminal))
    library.vterm_state_reset(state, 1)
    position = Position()
    wide = bytearray(LIMIT)
    for code in (*range(0xA0, 0xD800), *range(0xE000, LIMIT)):
        text = b"\x1b[1;1Ha" + chr(code).encode()
        library.vterm_input_write(terminal, text, ctypes.c_size_t(len(text)))
        library.vterm_state_get_cursorpos(state, ctypes.byref(position))
        wide[code] = position.col == 3
    return wide


def classify(category, wide, emulated):
    if category is None or category == "Cs":
        return UNASSIGNED
    if category in ("Mn", "Me", "Cf"):
        return COMBINING
    if emulated:
        return WIDE if wide else WIDE_UNSURE
    return NARROW_UNSURE if wide else NARROW


def main():
    categories, wide, emulated = unicode_categories(), unicode_wide(), emulator_wide()
    runs = []
    for code in range(0xA0, LIMIT):
        kind = classify(categories[code], wide[code], emulated[code])
        if code == 0xAD:
            kind = NARROW
        elif 0x1160 <= code <= 0x11FF:
            kind = COMBINING
        if not runs or runs[-1] & 7 != kind:
            runs.append(kind)
        runs[-1] += 8
    text = ", ".join(map(str, runs))
    print(textwrap.fill(text, 96, initial_indent=INDENT, subsequent_indent=INDENT))



main()
