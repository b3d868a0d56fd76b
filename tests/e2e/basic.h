// The client's basic interface between a fake daemon and a terminal or pipes.
#pragma once

#include "support/fake_daemon.h"
#include "support/program.h"
#include "support/text.h"

#include <gtest/gtest.h>
#include <optional>

constexpr const char *PORT_INFO = R"({"label":"lab","escape":5})";
constexpr const char *GREETING = "Connected to port: lab - Escape key is: Ctrl-e\r\n";
constexpr const char *QUIT = "\x05q";

// Chunks arrive as they are sent, and no terminal turns \n into \r\n.
const support::Launch PIPES{.input = {support::Stream::PIPE}, .output = {support::Stream::PIPE}};

struct Basic {
    support::FakeDaemon daemon;
    std::optional<support::Program> client;
    std::string greeting;

    explicit Basic(support::DaemonOptions options = {}) : daemon(std::move(options)) {}

    // Starts the client with PORT and --basic-interface in front of the arguments given.
    void launch(support::Launch setup = {})
    {
        const std::string start[] = {ZORVAD_CLIENT, daemon.key(), "--basic-interface"};
        setup.arguments.insert(setup.arguments.begin(), std::begin(start), std::end(start));
        client.emplace(std::move(setup));
        daemon.expect_connected();
    }

    // The same, and answers up to the greeting.
    void start(support::Launch setup = {}, const char *port_info = PORT_INFO,
               std::string greeted = GREETING)
    {
        launch(std::move(setup));
        daemon.expect_command("SET_USER");
        daemon.reply("{}");
        daemon.expect_command("PORT_INFO");
        daemon.reply(port_info);
        greeting = std::move(greeted);
        client->wait_for_output(greeting);
    }

    // What has come after the greeting is exactly this, once the client has shown as much.
    void expect_output(const std::string &text) { client->wait_for_output(greeting + text); }

    // Both directions work, and what was sent before has been dealt with. Sends key and expects
    // exactly before + key at the port.
    void expect_relay(const std::string &before, const std::string &key = "~")
    {
        client->send(key);
        daemon.expect_received(before + key);
    }

    int quit()
    {
        client->send(QUIT);
        return client->wait_for_exit();
    }
};
