// What the end-to-end tests do not see of requests and replies.
#include "link/command.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <sys/resource.h>

#include "link/owned.h"
#include "unit/support/connected.h"

namespace {

// The replies in the order in which the callbacks saw them.
std::vector<std::string> seen;

void keep_reply(node *reply, void *context)
{
    const Text text(json_stringify(reply, 1));
    seen.push_back(std::string(static_cast<const char *>(context)) + "=" + text.get());
}

struct CommandChannel : testing::Test {
    Connected daemon;

    CommandChannel() { seen.clear(); }

    void send(const char *name)
    {
        ASSERT_EQ(0, send_bare_command(zorvad, name, const_cast<char *>(name), keep_reply));
    }
    bool all_seen(size_t count)
    {
        return run_until([=] { return seen.size() >= count; });
    }
};

TEST_F(CommandChannel, AnswersACommandThatFindsTheBufferFull)
{
    daemon.reply(std::string(20000, ' '));
    EXPECT_TRUE(run_until([] { return zorvad.cmd_hangup.registered; }));
    send("A");
    daemon.reply("{}");
    EXPECT_TRUE(all_seen(1));
}

TEST_F(CommandChannel, KeepsAThousandForADaemonThatDoesNotAnswer)
{
    while (zorvad.command_count < COMMANDS_MAX) {
        send("A");
    }
    EXPECT_EQ(-1, send_bare_command(zorvad, "B", nullptr, nullptr));
    daemon.reply("{}");
    EXPECT_TRUE(all_seen(1));
    send("C");
    EXPECT_EQ(-1, send_bare_command(zorvad, "B", nullptr, nullptr));
}

long peak_kilobytes()
{
    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST_F(CommandChannel, AnEscapeThatIsATreeCostsAFixedMultipleOfItsBytes)
{
    static bool taken;
    taken = false;
    std::string reply = "{\"escape\":[[]";
    while (reply.size() < 3000000) {
        reply += ",[]";
    }
    reply += "]}";
    ASSERT_EQ(0, send_bare_command(zorvad, "A", nullptr, [](node *tree, void *) {
                  connection_take_escape(zorvad, tree);
                  taken = true;
              }));
    const long before = peak_kilobytes();
    daemon.reply(reply);
    EXPECT_TRUE(run_until([] { return taken; }));
    EXPECT_EQ(DEFAULT_ESCAPE_CHAR, zorvad.escape_char);
    EXPECT_LT((peak_kilobytes() - before) * 1024L, 70 * static_cast<long>(reply.size()));
}

} // namespace
