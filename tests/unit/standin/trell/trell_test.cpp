// What the program relies on in libtrell, whichever provides it.
#include "dep/trell.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::string_literals;

// What a JSON stream delivers.
struct Parsed {
    std::vector<struct node *> values;
    struct json_stream *stream = json_stream_new(
        [](struct node *value, void *context) {
            static_cast<Parsed *>(context)->values.push_back(value);
        },
        this);

    Parsed() = default;
    explicit Parsed(std::string_view text) { feed(text); }
    Parsed(const Parsed &) = delete;
    ~Parsed()
    {
        take();
        json_stream_free(stream);
    }
    bool feed(std::string_view chunk)
    {
        return json_stream_parse(stream, chunk.data(), chunk.size());
    }
    // The values since the last call, each with a ";".
    std::string take()
    {
        std::string texts;
        for (struct node *value : values) {
            char *text = json_stringify(value, 1);
            texts += std::string(text) + ";";
            free(text);
            node_free(value);
        }
        values.clear();
        return texts;
    }
};

// Every kind of value and token; what it is as one text in the canonical form.
const std::string SAMPLE = "{\"a\" : [1,-20,3.5,1e3, {} ,[ ],\"\"] ,\"b\\n\\u00e9\":\r\n"
                           "{\"c\":null,\"d\":true,\"e\":false}}null\"x\\\"\\\\/\\ud83d\\ude00\"[]"
                           "\t12 -0.5 true{\"k\":\"\xff\xc3\"}123456789012345678901 ";
const std::string SAMPLE_VALUES = "{\"a\":[1,-20,3.5,1000,{},[],\"\"],\"b\\n\xc3\xa9\":"
                                  "{\"c\":null,\"d\":true,\"e\":false}};null;"
                                  "\"x\\\"\\\\/\xf0\x9f\x98\x80\";[];12;-0.5;true;"
                                  "{\"k\":\"\xff\xc3\"};9223372036854775807;";

TEST(JsonStream, TakesValuesCutAnywhereAndDeliversWithTheLastByte)
{
    Parsed parsed;
    for (size_t first = 0; first <= SAMPLE.size(); ++first) {
        EXPECT_TRUE(parsed.feed(std::string_view(SAMPLE).substr(0, first)));
        EXPECT_TRUE(parsed.feed(std::string_view(SAMPLE).substr(first)));
        EXPECT_EQ(parsed.take(), SAMPLE_VALUES) << "cut at " << first;
    }
    for (const char *text : {"{}", "[1,[2]]", "\"a\"", "null", "true", "false"}) {
        for (const char *byte = text; *byte; ++byte) {
            EXPECT_EQ(parsed.take(), "") << text;
            EXPECT_TRUE(parsed.feed({byte, 1}));
        }
        EXPECT_EQ(parsed.take(), text + std::string(";"));
    }
}

TEST(JsonStream, DropsMalformedChunksOnly)
{
    Parsed parsed;
    std::istringstream texts(
        "} ] , : {] [} [, [1,] [1,,2 {1 {null {\"a\",1 {\"a\":1,} {\"a\":}{\"b\":1} nul} "
        "truth 'a' //c NaN \xff \xef\xbb\xbf +1 -x [.5 [01] [1e] [1-2] [1.2.3] "
        "\"\\x\" \"\\u12g4\" \0 {\"a\":\0 \"a\0b\" [\"a\\\0\"]"s);
    for (std::string bad; texts >> bad;) {
        EXPECT_FALSE(parsed.feed(bad)) << bad; // between two values, and within one
        EXPECT_FALSE(parsed.feed("[{\"kept\":[7,\"8\"]}," + bad + "\1")) << bad;
        EXPECT_TRUE(parsed.feed("[9]"));
        EXPECT_EQ(parsed.take(), "[9];") << bad;
    }
    EXPECT_FALSE(parsed.feed("null{}12\0{}"s));
    EXPECT_EQ(parsed.take(), "null;{};12;") << "what was complete before the error";
}

TEST(JsonStream, LimitsDepthAndSize)
{
    const std::string deepest = std::string(64, '[') + std::string(64, ']');
    constexpr size_t MEGABYTE = 1024 * 1024;
    const std::string letters(4096, 'a');
    Parsed parsed;
    EXPECT_FALSE(parsed.feed("[" + deepest + "]"));
    EXPECT_TRUE(parsed.feed(deepest));
    EXPECT_EQ(parsed.take(), deepest + ";");
    for (const char *begin : {"[\"", "{\""}) {
        size_t taken = 0;
        EXPECT_TRUE(parsed.feed(begin));
        while (taken < 64 * MEGABYTE && parsed.feed(letters)) {
            taken += letters.size();
        }
        EXPECT_LT(taken, 18 * MEGABYTE) << begin;
        EXPECT_GT(taken, 15 * MEGABYTE) << begin;
        EXPECT_TRUE(parsed.feed("{}"));
        EXPECT_EQ(parsed.take(), "{};") << begin;
    }
}

// A program that was started, or why not, with our ends of its streams.
struct Child {
    int in = -1, out = -1;
    pid_t id;
    int reason;

    explicit Child(const std::vector<const char *> &arguments,
                   const std::vector<const char *> &environment = {nullptr})
    {
        struct string_list *list = _sl_new(nullptr);
        EXPECT_TRUE(sl_appendn(list, arguments.data(), arguments.size()));
        id = process_spawn_pipe(list, environment.data(), nullptr, &in, &out, nullptr);
        reason = errno;
        sl_free(list);
    }
    Child(const Child &) = delete;
    ~Child()
    {
        close(in);
        close(out);
    }
    // All that it prints, and its exit status.
    std::string output() const
    {
        std::string text;
        char buffer[4096];
        ssize_t got = 0;
        while ((got = read(out, buffer, sizeof(buffer))) > 0) {
            text.append(buffer, static_cast<size_t>(got));
        }
        int status = -1;
        EXPECT_EQ(waitpid(id, &status, 0), id);
        return text + std::to_string(WEXITSTATUS(status));
    }
};

TEST(Process, HasItsArgumentsEnvironmentAndStreams)
{
    setenv("TRELL_KEPT", "kept", 1);
    setenv("TRELL_REPLACED", "old", 1);
    const int stray = fcntl(STDERR_FILENO, F_DUPFD, 900); // not for the child
    const Child child({"/bin/sh", "-c",
                       "for a in \"$@\"; do echo \"<$a>\"; done; "
                       "tr '\\0' '\\n' </proc/$$/environ | grep TRELL_; "
                       "ls /proc/self/fd | tr '\\n' ' '; read a; echo in $a; exit 7",
                       "sh", "A b", "", "*"},
                      {"TRELL_REPLACED", "new", "TRELL_EMPTY", "", nullptr});
    ASSERT_GT(child.id, 0);
    for (const int end : {child.in, child.out}) {
        EXPECT_EQ(fcntl(end, F_GETFD), FD_CLOEXEC);
    }
    EXPECT_EQ(write(child.in, "one\n", 4), 4);
    EXPECT_EQ(child.output(), "<A b>\n<>\n<*>\nTRELL_KEPT=kept\nTRELL_REPLACED=new\n"
                              "TRELL_EMPTY=\n0 1 2 3 in one\n7"); // 3 is the directory
    close(stray);
}

TEST(Process, TellsWhyItCannotStart)
{
    const std::pair<std::vector<const char *>, int> rows[] = {
        {{"/nonexistent/program", "A"}, ENOENT}, {{"/etc/passwd"}, EACCES}, {{}, EINVAL}};
    for (auto handler : {SIG_DFL, SIG_IGN}) { // whoever reaps it
        signal(SIGCHLD, handler);
        for (const auto &[arguments, reason] : rows) {
            const Child child(arguments);
            EXPECT_EQ(child.id, -1);
            EXPECT_EQ(child.reason, reason);
            EXPECT_EQ(child.in + child.out, -2) << "left alone";
            EXPECT_EQ(waitpid(-1, nullptr, 0), -1);
        }
    }
    signal(SIGCHLD, SIG_DFL);
}

} // namespace
