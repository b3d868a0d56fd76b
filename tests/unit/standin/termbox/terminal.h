// What the tests of the termbox2 stand-in share: its output caught at write(), a pty for its
// settings, input and size.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <termbox2.h>

#include "support/screen.h"

using support::Screen;

// The calls that the implementation's unit makes through here.
struct Interposed {
    std::string output;          // bytes written to the terminal
    int writes = 0;              // calls that wrote some
    std::vector<ssize_t> script; // results of the next writes: a count, or a negated errno
};
extern Interposed interposed;

// As the implementation has it; 0 for what is not sent just as it is.
int columns_of(uint32_t ch);

// A pty of 24 x 80, TERM xterm; the stand-in starts on it by start().
struct TermboxTest : testing::Test {
    TermboxTest();
    ~TermboxTest() override;
    int start() { return tb_init_file(path.c_str()); }
    void resize(int columns, int rows); // of the pty; announced by the signal
    std::string take_output();
    std::string present();

    int master = -1, slave = -1;
    std::string path;
};
