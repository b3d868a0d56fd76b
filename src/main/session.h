// Runs the session in the event loop and sees it out.
#pragma once

// Runs the loop until the session is over or SIGINT or SIGTERM ends it.
void session_run();

// Hands on what is still on its way: typed bytes to the port and, in the basic interface, port
// output that arrived before the hang-up to standard output. Gives up after 2 s without progress,
// or on another SIGINT or SIGTERM.
void session_flush();
