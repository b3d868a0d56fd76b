// The client with either front end, on a terminal.
#pragma once

#include "e2e/basic.h"
#include "e2e/tui.h"

#include <fcntl.h>

// Whether the terminal is as it is before a client runs on it.
inline bool as_found(support::Program &client)
{
    static const std::string found =
        support::describe(support::Program({.arguments = {"/bin/true"}}).settings());
    return support::describe(client.settings()) == found && !client.screen().alternate &&
           (client.stream_flags(0) & O_NONBLOCK) == 0;
}

struct Session : Tui {
    const bool basic;

    explicit Session(bool basic_interface) : basic(basic_interface)
    {
        daemon.answer("PORT_INFO", TUI_PORT_INFO);
    }

    void begin(support::Launch setup = {})
    {
        start_only(std::move(setup));
        daemon.expect_connected();
        wait_until_up();
    }
    void start_only(support::Launch setup)
    {
        const std::string first[] = {ZORVAD_CLIENT, daemon.key(), "admin"};
        setup.arguments.insert(setup.arguments.begin(), std::begin(first), std::end(first));
        if (basic) {
            setup.arguments.push_back("--basic-interface");
        }
        client.emplace(std::move(setup));
    }
    void wait_until_up()
    {
        if (basic) {
            client->wait_for("Escape key is: Ctrl-e\r\n");
        } else {
            client->wait_until([this] { return bar_is_drawn(); }, "the status bar");
        }
    }
};
