#include "tests/sim/harness.h"

#include "sim/command_parser.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>
#include <fstream>

namespace sim_test {
namespace {

constexpr int DEADLINE = 30; // seconds
constexpr size_t RECEIVE_SIZE = 1 << 16;

support::Launch launch(const std::string &run_directory, const std::vector<std::string> &arguments)
{
    support::Launch setup{.arguments = {SIM_PROGRAM, "--run-dir", run_directory},
                          .output = {support::Stream::PIPE}};
    setup.arguments.insert(setup.arguments.end(), arguments.begin(), arguments.end());
    return setup;
}

} // namespace

Directory::Directory()
{
    char name[] = "/tmp/zorvad-sim-test-XXXXXX";
    path_ = mkdtemp(name);
}

Directory::~Directory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string Directory::write(const std::string &name, std::string_view bytes) const
{
    std::ofstream(path(name), std::ios::binary) << bytes;
    return path(name);
}

Simulator::Simulator(const std::vector<std::string> &arguments, bool serves)
    : program(launch(directory.path("run"), arguments))
{
    if (serves) {
        program.wait_for("ready\n");
    }
}

std::string Simulator::control(const std::string &port, const std::string &line) const
{
    support::Program control(launch(directory.path("run"), {"--control", port, line}));
    control.wait_for_exit();
    return control.output() + control.error_output();
}

void Simulator::wait_for_stats(const std::string &port, const std::string &text) const
{
    std::string stats;
    EXPECT_TRUE(support::loop().run_until([&] {
        stats = control(port, "stats");
        return stats.find(text) != std::string::npos;
    })) << stats;
}

Connection::Connection(const std::string &path)
    : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    timeval deadline{DEADLINE, 0};
    setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
    setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline);
    if (connect(fd_.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) < 0) {
        fd_.reset();
    }
}

bool Connection::send(std::string_view bytes)
{
    return ::send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
}

bool Connection::more(size_t limit)
{
    char buffer[RECEIVE_SIZE];
    ssize_t count = recv(fd_.get(), buffer, std::min(limit, sizeof buffer), 0);
    ended_ = count == 0;
    if (count > 0) {
        received_.append(buffer, static_cast<size_t>(count));
    }
    return count > 0;
}

std::string Connection::receive(size_t count)
{
    while (received_.size() < count && more(count - received_.size())) {
        ;
    }
    std::string bytes = received_.substr(0, count);
    received_.erase(0, count);
    return bytes;
}

std::string Connection::receive_until(std::string_view text)
{
    size_t found;
    while ((found = received_.find(text)) == std::string::npos && more(RECEIVE_SIZE)) {
        ;
    }
    return receive(found == std::string::npos ? received_.size() : found + text.size());
}

std::string Connection::receive_all()
{
    while (more(RECEIVE_SIZE)) {
        ;
    }
    return std::exchange(received_, {});
}

Client::Client(const Simulator &simulator, const std::string &port)
    : command_socket(simulator.path(port + "/cmd.sck")), data(simulator.path(port + "/data.sck"))
{
}

std::string Client::ask(const std::string &request)
{
    if (!command_socket.send(request)) {
        return "not sent";
    }
    std::string reply, byte;
    sim::CommandParser parser;
    sim::Json value;
    do {
        byte = command_socket.receive(1);
        reply += byte;
        parser.push(byte);
    } while (byte != "" && !parser.next(value));
    return reply;
}

std::string Client::login(const std::string &user)
{
    return ask(R"({"cmd":"SET_USER","args":{"username":")" + user +
               R"(","right":"admin","protocol":"Console"}})");
}

} // namespace sim_test
