// What the end-to-end tests do not reach: a directory, a held source, turns, a port that dies while
// stuck.
#include "link/connection.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "link/command.h"
#include "link/mkdir_p.h"
#include "unit/support/connected.h"

namespace {

// As a stream reports a pipe whose writer goes away while it is not read.
TEST(ReadGate, ReadsASourceWhoseEndWasReportedWhileItWasHeld)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(0, uloop_init());
    ustream_fd source = {};
    ustream_fd_init(&source, ends[0]);
    ReadGate gate = {};
    read_gate_init(gate, source);
    read_gate_hold(gate, HOLD_SINK);
    close(ends[1]);
    source.stream.write_error = true;
    read_gate_release(gate, HOLD_SINK);
    EXPECT_TRUE(source.stream.eof);
    ustream_free(&source.stream);
    close(ends[0]);
}

std::vector<int32_t> handled; // the sizes of what was, one after another

// Handles something for most of a turn: a second one would go far beyond it.
void handle_slowly(int32_t size)
{
    handled.push_back(size);
    usleep(TURN_US * 3 / 4);
}

// Runs the loop until all is handled, no two things in one round.
void expect_one_a_round(const std::vector<int32_t> &all)
{
    handled.clear();
    for (int round = 0; round < 1000 && handled.size() < all.size(); round++) {
        const size_t before = handled.size();
        uloop_run_timeout(1);
        EXPECT_LE(handled.size(), before + 1);
    }
    EXPECT_EQ(all, handled);
}

TEST(Turn, PortOutputGivesWayBetweenTwoPieces)
{
    Connected daemon;
    zorvad.output_sink = [](const char *, int32_t length) { handle_slowly(length); };
    send_all(daemon.data, std::string(300, 'x'));
    expect_one_a_round({300});
    zorvad.piece_length = [](const char *, int32_t length) { return std::min(length, 200); };
    send_all(daemon.data, std::string(500, 'x'));
    expect_one_a_round({200, 200, 100});
    EXPECT_EQ(800, zorvad.port_output.bytes);
}

TEST(Turn, RepliesGiveWay)
{
    Connected daemon;
    const auto on_reply = [](node *, void *) { handle_slowly(1); };
    for (int i = 0; i < 4; i++) {
        ASSERT_EQ(0, send_bare_command(zorvad, "PORT_INFO", nullptr, on_reply));
        daemon.reply("{\"filling\":\"" + std::string(4096 - 14, 'x') + "\"}"); // a whole buffer
    }
    expect_one_a_round({1, 1, 1, 1});
}

TEST(Data, ThePortIsNotStuckWhenItTakesNothingEverAgain)
{
    static bool drained;
    drained = false;
    Connected daemon;
    EXPECT_FALSE(port_is_stuck(zorvad));
    const std::string bytes(TYPED_LIMIT + 1000000, 'x');
    ustream_write(&zorvad.data_stream.stream, bytes.data(), static_cast<int>(bytes.size()), false);
    EXPECT_TRUE(port_is_stuck(zorvad));
    zorvad.on_port_drained = [] { drained = true; };
    EXPECT_FALSE(receive(daemon.data, 300000).empty());
    EXPECT_FALSE(drained);
    shutdown(daemon.data, SHUT_RD);
    EXPECT_FALSE(receive(daemon.data, TYPED_LIMIT).empty()); // makes room: the next write fails
    EXPECT_TRUE(run_until([] { return drained; }));
    EXPECT_FALSE(port_is_stuck(zorvad));
    EXPECT_FALSE(zorvad.quit);
    zorvad.on_port_drained = nullptr;
}

TEST(MkdirP, MakesMissingParentsAndTellsWhatStandsInTheWay)
{
    const std::string top = testing::TempDir() + "mkdir_p-" + std::to_string(getpid());
    umask(022);
    EXPECT_EQ(0, mkdir_p((top + "/a/b//c/").c_str()));
    EXPECT_EQ(0, errno);
    EXPECT_TRUE(std::filesystem::is_directory(top + "/a/b/c"));
    EXPECT_EQ(0755U, static_cast<unsigned>(std::filesystem::status(top + "/a").permissions()));
    EXPECT_EQ(0, mkdir_p((top + "/a").c_str()));
    EXPECT_EQ(0, errno);
    EXPECT_EQ(0, mkdir_p("/"));

    std::ofstream(top + "/file") << "x";
    EXPECT_EQ(-1, mkdir_p((top + "/file/x").c_str()));
    EXPECT_EQ(ENOTDIR, errno);
    EXPECT_EQ(-1, mkdir_p((top + "/file").c_str()));
    EXPECT_EQ(ENOTDIR, errno);
    EXPECT_EQ(-1, mkdir_p(""));
    EXPECT_EQ(ENOENT, errno);
    std::filesystem::remove_all(top);
}

} // namespace
