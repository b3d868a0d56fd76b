// The program's own table: what the command lines fill in and what is printed about them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "dep/argtable.h"

namespace {

struct Printed {
    char *text = nullptr;
    size_t length = 0;
    FILE *stream = open_memstream(&text, &length);
    std::string take()
    {
        fclose(stream);
        std::string taken(text, length);
        free(text);
        return taken;
    }
};

struct ParseTest : testing::Test {
    struct arg_str *port = arg_str1(nullptr, nullptr, "PORT", "the serial key of the port");
    struct arg_str *right = arg_str0(nullptr, nullptr, "ACCESS-RIGHT", "the access rights");
    struct arg_lit *help = arg_lit0(nullptr, "help", "display this help and exit");
    struct arg_lit *basic = arg_lit0(nullptr, "basic-interface", "no TUI");
    struct arg_end *end = arg_end(2);
    void *table[5] = {port, right, help, basic, end};

    ~ParseTest() override { arg_freetable(table, 5); }

    // "PORT ACCESS-RIGHT switches", then the errors without the program's name.
    std::string parse(std::vector<std::string> line)
    {
        line.insert(line.begin(), "program");
        std::vector<char *> arguments;
        for (std::string &argument : line) {
            arguments.push_back(argument.data());
        }
        arguments.push_back(nullptr);
        const int errors = arg_parse(static_cast<int>(line.size()), arguments.data(), table);
        EXPECT_EQ(errors, end->count);
        std::string result = port->count ? "<" + std::string(port->sval[0]) + ">" : "none";
        result += right->count ? " <" + std::string(right->sval[0]) + ">" : " none";
        result += help->count ? " help" : "";
        result += basic->count ? " basic" : "";
        EXPECT_LE(std::max({port->count, right->count, help->count, basic->count}), 1);
        Printed printed;
        arg_print_errors(printed.stream, end, "p");
        return result + "\n" + printed.take();
    }
};

struct Row {
    std::vector<std::string> line;
    const char *result;
    bool first_text_ends_switches = false; // asked for by POSIXLY_CORRECT
};

TEST_F(ParseTest, FillsTheTableOrTellsWhatIsWrong)
{
    const Row rows[] = {
        {{"P"}, "<P> none\n"},
        {{"P", "admin"}, "<P> <admin>\n"},
        {{""}, "<> none\n"},
        {{"-", "-"}, "<-> <->\n"},
        {{"P", "admin", "x"}, "<P> <admin>\np: excess option x\n"},
        {{"P", "admin", "x", "y"},
         "<P> <admin>\np: excess option x\np: unexpected argument \"y\"\n"},
        {{"P", "a", "b", "c", "d"}, "<P> <a>\np: excess option b\np: too many errors to display\n"},
        {{}, "none none\np: missing option PORT\n"},
        {{"--help"}, "none none help\np: missing option PORT\n"},
        {{"--bogus"}, "none none\np: invalid option \"--bogus\"\n"},
        {{"P", "--basic-interface", "admin", "--help"}, "<P> <admin> help basic\n"},
        {{"--h", "P", "--ba"}, "<P> none help basic\n"},
        {{"P", "--helpx"}, "<P> none\np: invalid option \"--helpx\"\n"},
        {{"P", "--help=x"}, "<P> none\np: invalid option \"--help=x\"\n"},
        {{"P", "--basic-interface=1"}, "<P> none\np: invalid option \"--basic-interface=1\"\n"},
        {{"P", "--=x"}, "<P> none\np: invalid option \"--=x\"\n"},
        {{"P", "---"}, "<P> none\np: invalid option \"---\"\n"},
        {{"P", "--b", "--basic-interface"},
         "<P> none basic\np: extraneous option --basic-interface\n"},
        {{"P", "--help", "--help", "--help", "--help"},
         "<P> none help\np: extraneous option --help\np: too many errors to display\n"},
        {{"P", "a", "x", "--bogus"},
         "<P> <a>\np: invalid option \"--bogus\"\np: excess option x\n"},
        {{"P", "-xyz"}, "<P> none\np: invalid option \"-x\"\np: too many errors to display\n"},
        {{"P", "-x-"}, "<P> none\np: invalid option \"-x\"\np: invalid option \"--\"\n"},
        {{"P", "-W", "foo"}, "<P> <foo>\np: invalid option \"-W\"\n"},
        {{"P", "-h"}, "<P> none\np: invalid option \"-h\"\n"},
        {{"--", "--help"}, "<--help> none\n"},
        {{"P", "--help", "--"}, "<P> none help\n"},
        {{"P", "--", "--", "x"}, "<P> <-->\np: excess option x\n"},
        {{"--help", "P", "--"}, "<P> <--> help\n", true},
        {{"P", "--help"}, "<P> <--help>\n", true},
        {{"-", "-x", "y"}, "<-> <-x>\np: excess option y\n", true},
        {{"--bogus", "P", "-x"}, "<P> <-x>\np: invalid option \"--bogus\"\n", true},
    };
    for (const Row &row : rows) {
        row.first_text_ends_switches ? setenv("POSIXLY_CORRECT", "", 1)
                                     : unsetenv("POSIXLY_CORRECT");
        EXPECT_EQ(parse(row.line), row.result) << testing::PrintToString(row.line);
    }
    unsetenv("POSIXLY_CORRECT");
}

} // namespace
