// Each measures some figures and prints their rows.
#pragma once

// The basic interface.
void basic_to_terminal();
void basic_to_pipe();
void basic_paste();

// The terminal UI.
void emulated_output();
void emulated_paste();
void history();
// A port at the speed of a serial line.
void line_speed();
void slow_terminal();
void typing();

// Both.
void key_echo();
void key_under_flood();
void key_under_flood_slow();
void start_up();
void memory();
void idle();
void size();

// What else there is, for comparison only.
void peers();
