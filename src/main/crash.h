// Gives the terminal back when the program crashes.
#pragma once

// From now on SIGSEGV, SIGBUS, SIGABRT, SIGILL and SIGFPE have the front end give the terminal back
// before they end the program as they would have.
void crash_prepare();
