#include "sim/options.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

TEST(Options, SaysWhatIsWrong)
{
    struct Row {
        std::vector<std::string> arguments;
        std::string error;
    };
    const Row rows[] = {
        {{}, "no --port given"},
        {{"x"}, "unexpected argument 'x'"},
        {{"--smoke"}, "unknown option --smoke"},
        {{"--port"}, "--port needs a value"},
        {{"--help=1"}, "--help takes no value"},
        {{"--loopback"}, "--loopback needs a --port before it"},
        {{"--port", "a"}, "port a: one of --exec, --device, --loopback is needed"},
        {{"--port", "a", "--exec", "x", "--loopback"},
         "port a: one of --exec, --device, --loopback is needed"},
        {{"--port", "a", "--loopback", "--port", "a"}, "bad value 'a' for --port"},
        {{"--port", "a", "--baud", "9600", "--loopback"}, "port a: --baud goes with --device only"},
        {{"--port", "a", "--device", "x", "--size", "80x23"},
         "port a: --size goes with --exec only"},
        {{"--control", "a"}, "--control needs a line behind the key"},
        {{"--control", "a", "stats", "--background"},
         "of the options only --run-dir goes with --control"},
        {{"--port", "../a"}, "bad value '../a' for --port"},
        {{"--port", "/a"}, "bad value '/a' for --port"},
        {{"--port", "a", "--size", "80"}, "bad value '80' for --size"},
        {{"--port", "a", "--size", "0x9"}, "bad value '0x9' for --size"},
        {{"--port", "a", "--size", "70000x9"}, "bad value '70000x9' for --size"},
        {{"--port", "a", "--baud", "12345"}, "bad value '12345' for --baud"},
        {{"--port", "a", "--format", "9N1"}, "bad value '9N1' for --format"},
        {{"--port", "a", "--escape", "256"}, "bad value '256' for --escape"},
        {{"--port", "a", "--signals", "dcd,xyz"}, "bad value 'dcd,xyz' for --signals"},
    };
    for (const Row &row : rows) {
        Options options;
        std::string error;
        EXPECT_FALSE(parse_options(row.arguments, options, error));
        EXPECT_EQ(error, row.error);
    }
}

} // namespace
} // namespace sim
