// The terminal's control strings: from terminfo, or built in for the families of terminals that
// people come from when the machine has no entry for theirs.
#pragma once

#include <stdlib.h>
#include <string.h>

// Of libtinfo these four are needed. Its <term.h> defines some five hundred macros with names like
// lines and columns, so it is not included.
extern "C" {
struct term;
int setupterm(const char *name, int fd, int *status);
char *tigetstr(const char *name);
struct term *set_curterm(struct term *terminal);
int del_curterm(struct term *terminal);
}

namespace {

constexpr const char *cap_names[CAP_COUNT] = {"smcup", "rmcup", "cnorm", "civis", "clear",
                                              "sgr0",  "smul",  "bold",  "blink", "sitm",
                                              "rev",   "smkx",  "rmkx"};

struct tb_family {
    const char *names[4]; // a TERM that contains one of them, or null
    const char *caps[CAP_COUNT];
};

// The first match counts: "screen.xterm" is a screen.
constexpr tb_family families[] = {
    {{"screen", "tmux"},
     {"\033[?1049h", "\033[?1049l", "\033[34h\033[?25h", "\033[?25l", "\033[H\033[J", "\033[m\017",
      "\033[4m", "\033[1m", "\033[5m", "", "\033[7m", "\033[?1h\033=", "\033[?1l\033>"}},
    {{"rxvt"},
     {"\0337\033[?47h", "\033[2J\033[?47l\0338", "\033[?25h", "\033[?25l", "\033[H\033[2J",
      "\033[m\017", "\033[4m", "\033[1m", "\033[5m", "", "\033[7m", "\033=", "\033>"}},
    {{"linux"},
     {"", "", "\033[?25h\033[?0c", "\033[?25l\033[?1c", "\033[H\033[J", "\033[m\017", "\033[4m",
      "\033[1m", "\033[5m", "", "\033[7m", "", ""}},
    {{"xterm"},
     {"\033[?1049h", "\033[?1049l", "\033[?12l\033[?25h", "\033[?25l", "\033[H\033[2J",
      "\033(B\033[m", "\033[4m", "\033[1m", "\033[5m", "\033[3m", "\033[7m",
      "\033[?1h\033=", "\033[?1l\033>"}},
    {{"vt100", "vt102", "vt220", "vt320"},
     {"", "", "\033[?25h", "\033[?25l", "\033[H\033[J", "\033[m\033(B", "\033[4m", "\033[1m",
      "\033[5m", "", "\033[7m", "\033[?1h\033=", "\033[?1l\033>"}},
};

// The length of the padding mark "$<20*/>" that text begins with, or 0.
size_t padding_length(const char *text)
{
    if (text[0] != '$' || text[1] != '<') {
        return 0;
    }
    size_t digits = strspn(text + 2, "0123456789.");
    size_t length = 2 + digits;
    length += strspn(text + length, "*/");
    return digits && text[length] == '>' ? length + 1 : 0;
}

// Copies without the padding; returns the bytes written, NUL not counted.
size_t copy_unpadded(char *to, const char *text)
{
    char *start = to;
    while (*text) {
        size_t padding = padding_length(text);
        if (padding) {
            text += padding;
        } else {
            *to++ = *text++;
        }
    }
    *to = '\0';
    return static_cast<size_t>(to - start);
}

// Copies the loaded terminal's strings, so that libtinfo need not keep them.
int caps_copy(tb_caps &caps)
{
    const char *texts[CAP_COUNT];
    size_t size = 0;
    for (int i = 0; i < CAP_COUNT; i++) {
        const char *text = tigetstr(cap_names[i]);
        bool absent = !text || text == reinterpret_cast<const char *>(-1);
        texts[i] = absent ? "" : text;
        size += strlen(texts[i]) + 1;
    }
    caps.block = static_cast<char *>(malloc(size));
    if (!caps.block) {
        return TB_ERR_MEM;
    }
    char *next = caps.block;
    for (int i = 0; i < CAP_COUNT; i++) {
        caps.caps[i] = {next, copy_unpadded(next, texts[i])};
        next += caps.caps[i].length + 1;
    }
    return TB_OK;
}

bool family_matches(const tb_family &family, const char *name)
{
    for (const char *part : family.names) {
        if (part && strstr(name, part)) {
            return true;
        }
    }
    return false;
}

int caps_built_in(tb_caps &caps, const char *name)
{
    for (const tb_family &family : families) {
        if (!family_matches(family, name)) {
            continue;
        }
        for (int i = 0; i < CAP_COUNT; i++) {
            caps.caps[i] = {family.caps[i], strlen(family.caps[i])};
        }
        return TB_OK;
    }
    return TB_ERR_UNSUPPORTED_TERM;
}

// libtinfo looks up the baud rate of fd. It keeps no terminal of ours afterwards.
int caps_load(tb_caps &caps, int fd)
{
    const char *name = getenv("TERM");
    if (!name) {
        return TB_ERR_NO_TERM;
    }
    int status = -1;
    bool found = *name && setupterm(name, fd, &status) == 0;
    int result = found ? caps_copy(caps) : caps_built_in(caps, name);
    struct term *loaded = set_curterm(nullptr);
    if (loaded) {
        (void)del_curterm(loaded); // what it could not free is not ours
    }
    if (result != TB_OK) {
        return result;
    }
    constexpr size_t COLOURS_MAX = sizeof("\033[37;47m");
    caps.attributes_max = COLOURS_MAX;
    for (const tb_cap &cap : caps.caps) {
        caps.attributes_max += cap.length;
    }
    return TB_OK;
}

} // namespace
