// The client's terminal UI between a fake daemon and an emulated terminal.
#pragma once

#include "support/fake_daemon.h"
#include "support/program.h"
#include "support/text.h"

#include <cstring>
#include <gtest/gtest.h>
#include <optional>

constexpr const char *TUI_PORT_INFO =
    R"({"label":"lab","users":"ann","info":"8N1","escape":5,"signals":{"dcd":true,"cts":true}})";

constexpr int WHITE = 7, BLUE = 4, RED = 1, GREEN = 2, OWN = -1;

struct Tui {
    support::FakeDaemon daemon;
    std::optional<support::Program> client;

    explicit Tui(support::DaemonOptions options = {}) : daemon(std::move(options))
    {
        daemon.answer("SET_USER", "{}");
        daemon.answer("BREAK", "{}");
    }

    void launch(support::Launch launch = {})
    {
        const std::string first[] = {ZORVAD_CLIENT, daemon.key()};
        launch.arguments.insert(launch.arguments.begin(), std::begin(first), std::end(first));
        client.emplace(std::move(launch));
        daemon.expect_connected();
    }

    // Up to the first full status bar.
    void start(support::Launch with = {}, const std::string &port_info = TUI_PORT_INFO)
    {
        daemon.answer("PORT_INFO", port_info);
        launch(std::move(with));
        client->wait_until([this] { return bar_is_drawn(); }, "the status bar");
    }

    support::Screen &screen() { return client->screen(); }

    bool bar_is_drawn()
    {
        const int row = screen().rows() - 1;
        return screen().row(row).starts_with(
                   std::string("Label: lab")
                       .substr(0, size_t(std::max(screen().columns() - 1, 0)))) &&
               screen().cell(row, screen().columns() - 1).background == BLUE;
    }

    // The status bar with the seconds replaced by an N.
    std::string bar()
    {
        std::string text = screen().row(screen().rows() - 1);
        if (const size_t start = text.find("Time: "); start != std::string::npos) {
            const size_t digits = start + strlen("Time: ");
            text.replace(digits, text.find_first_not_of("-0123456789", digits) - digits, "N");
        }
        return text;
    }

    // Once both agree: the port's rows show what an emulator of that size shows of the same bytes.
    void expect_port_screen(const support::Screen &direct, bool cursor = true)
    {
        const support::Comparison what{.rows = direct.rows(), .colours = false, .cursor = cursor};
        const support::Picture expected = direct.picture();
        std::string difference;
        const auto agree = [&] {
            difference = support::compare(expected, screen().picture(), what);
            return difference.empty();
        };
        if (!support::loop().run_until(agree)) {
            throw support::Failure(difference + client->description());
        }
    }

    void expect_blank_port_screen()
    {
        expect_port_screen(support::Screen(screen().rows() - 1, screen().columns()), false);
    }

    // Once it is so: the rows from (x, y) on read like this, all of one colour pair.
    void expect_box(int x, int y, const std::vector<std::string> &rows)
    {
        const auto as_drawn = [&] {
            std::vector<std::string> found;
            for (size_t row = 0; row < rows.size(); ++row) {
                const int width = int(rows[row].size());
                found.push_back(screen().span(y + int(row), x, x + width));
            }
            return found;
        };
        if (!support::loop().run_until([&] { return as_drawn() == rows; })) {
            EXPECT_EQ(rows, as_drawn()) << client->description();
        }
        for (size_t row = 0; row < rows.size(); ++row) {
            for (int column = x; column < x + int(rows[row].size()); ++column) {
                const support::Cell cell = screen().cell(y + int(row), column);
                ASSERT_EQ(BLUE, cell.background) << "row " << row << " column " << column;
            }
        }
    }

    // A resize that the client has answered: the bar is at its new place. What the client does not
    // draw anew is left as rubbish.
    void resize(int rows, int columns)
    {
        client->resize(rows, columns);
        std::string rubbish = "\x1b"
                              "7";
        for (int row = 1; row <= screen().rows(); ++row) {
            rubbish += "\x1b[" + std::to_string(row) + ";1H" +
                       std::string(size_t(screen().columns()), '#');
        }
        screen().feed(rubbish + "\x1b"
                                "8");
        client->wait_until([this] { return bar_is_drawn(); }, "the status bar at its new place");
    }

    // The next refresh has been drawn and sent.
    void wait_for_refresh()
    {
        const size_t count = daemon.command_count("PORT_INFO");
        client->wait_until([&] { return daemon.command_count("PORT_INFO") >= count + 2; },
                           "two refreshes");
    }

    void expect_relay(const std::string &before, const std::string &key = "~")
    {
        client->send(key);
        daemon.expect_received(before + key);
    }

    int quit()
    {
        client->send("\5q");
        return client->wait_for_exit();
    }
};
