// Port bytes: to all clients, from each client, complete and in order, whoever reads or does not.
#include "tests/sim/harness.h"

#include "support/text.h"

#include <sys/socket.h>

#include <filesystem>
#include <numeric>

namespace sim_test {
namespace {

// Bytes whose every 8-byte group is another one.
std::string numbered(size_t size)
{
    std::string bytes;
    char group[9];
    for (unsigned i = 0; bytes.size() < size; i++) {
        snprintf(group, sizeof group, "%07x\n", i);
        bytes += group;
    }
    bytes.resize(size);
    return bytes;
}

TEST(SimData, EveryByteGoesToAllClients)
{
    Simulator simulator({"--port", "a/b", "--loopback"});
    Client first(simulator, "a/b");
    Client second(simulator, "a/b");
    simulator.wait_for_stats("a/b", "clients 2");
    std::string bytes(256, ' ');
    std::iota(bytes.begin(), bytes.end(), '\0');
    for (Client *sender : {&first, &second}) {
        EXPECT_TRUE(sender->data.send(bytes));
        EXPECT_EQ(first.data.receive(256), bytes);
        EXPECT_EQ(second.data.receive(256), bytes);
    }
}

// A port whose program sends more than sockets hold once it gets a line, and two clients of which
// one leaves its bytes unread.
struct SlowAndQuick {
    Directory files;
    std::string bytes;
    Simulator simulator;
    Client slow{simulator, "p"};
    Client quick{simulator, "p"};

    explicit SlowAndQuick(size_t size)
        : bytes(numbered(size)),
          simulator({"--port", "p", "--exec",
                     "stty raw -echo; touch " + files.path("raw") + "; read x; cat " +
                         files.write("bytes", bytes) + "; read x"})
    {
        slow.login("slow");
        quick.login("quick");
        simulator.wait_for_stats("p", "clients 2");
        EXPECT_TRUE(
            support::loop().run_until([&] { return std::filesystem::exists(files.path("raw")); }));
        EXPECT_TRUE(quick.data.send("\n"));
    }
};

TEST(SimData, AClientThatDoesNotReadHoldsNobodyUp)
{
    SlowAndQuick port(16 << 20);
    EXPECT_TRUE(port.quick.data.receive(port.bytes.size()) == port.bytes);
    port.simulator.wait_for_stats("p", "dropped 1");
    EXPECT_NE(port.quick.command("PORT_INFO").find(R"("users":"quick")"), std::string::npos);
    // What it can still read is the beginning, without a gap, and then the end.
    std::string rest = port.slow.data.receive_all();
    EXPECT_TRUE(port.slow.data.ended());
    EXPECT_TRUE(rest == port.bytes.substr(0, rest.size()));
    EXPECT_GT(rest.size(), 1u << 16);
}

TEST(SimData, InputForAPortThatDoesNotReadIsBounded)
{
    Simulator simulator({"--port", "p", "--loopback"});
    Client client(simulator, "p");
    // Nobody reads what comes back, so in the end nothing more is taken.
    timeval nothing_more{0, 300'000};
    setsockopt(client.data.fd(), SOL_SOCKET, SO_SNDTIMEO, &nothing_more, sizeof nothing_more);
    std::string bytes = numbered(16 << 20);
    ssize_t count = send(client.data.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    ASSERT_GT(count, 0);
    auto sent = static_cast<size_t>(count);
    EXPECT_LT(sent, 4u << 20);
    EXPECT_NE(client.command("PORT_INFO").find("loop-back"), std::string::npos);
    EXPECT_TRUE(client.data.receive(sent) == bytes.substr(0, sent));
}

TEST(SimData, WhatWasSentBeforeLeavingArrives)
{
    Directory files;
    std::string bytes = numbered(1 << 20);
    Simulator simulator(
        {"--port", "p", "--exec", "stty raw -echo; echo up; cat >" + files.path("captured")});
    {
        Client client(simulator, "p");
        EXPECT_EQ(client.data.receive(3), "up\n");
        EXPECT_TRUE(client.data.send(bytes));
    }
    EXPECT_TRUE(support::loop().run_until(
        [&] { return support::read_file(files.path("captured")) == bytes; }));
}

TEST(SimData, AHalfClosedClientGoesOnReceiving)
{
    Simulator simulator({"--port", "p", "--loopback"});
    Client half(simulator, "p");
    EXPECT_TRUE(half.data.send("half"));
    EXPECT_EQ(half.data.receive(4), "half");
    shutdown(half.data.fd(), SHUT_WR);
    Client whole(simulator, "p");
    simulator.wait_for_stats("p", "clients 2");
    EXPECT_TRUE(whole.data.send("whole"));
    EXPECT_EQ(half.data.receive(5), "whole");
    EXPECT_TRUE(half.command_socket.send(R"({"cmd":"BREAK"}{)"));
    shutdown(half.command_socket.fd(), SHUT_WR);
    EXPECT_EQ(half.command_socket.receive_all(), "{}");
    EXPECT_TRUE(half.command_socket.ended());
}

} // namespace
} // namespace sim_test
