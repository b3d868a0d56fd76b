// What the end-to-end tests do not reach: a directory, a held source, a port that dies while stuck.
#include "link/connection.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

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
    read_gate_init(gate, source, 1000);
    read_gate_hold(gate, HOLD_SINK);
    close(ends[1]);
    source.stream.write_error = true;
    read_gate_release(gate, HOLD_SINK);
    EXPECT_TRUE(source.stream.eof);
    ustream_free(&source.stream);
    close(ends[0]);
}

TEST(Data, ThePortIsNotStuckWhenItTakesNothingEverAgain)
{
    static bool drained;
    Connected daemon;
    EXPECT_FALSE(port_is_stuck(zorvad));
    zorvad.on_port_drained = [] { drained = true; };
    const std::string bytes(TYPED_LIMIT + 1000000, 'x');
    ustream_write(&zorvad.data_stream.stream, bytes.data(), static_cast<int>(bytes.size()), false);
    EXPECT_TRUE(port_is_stuck(zorvad));
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
