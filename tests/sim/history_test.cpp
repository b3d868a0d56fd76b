#include "sim/history.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

using namespace std::string_literals;

// All lines, oldest first: index, type, time and text of each.
std::string lines(const History &history)
{
    std::string all;
    for (size_t i = history.size(); i-- > 0;) {
        const HistoryLine &line = history.newest(i);
        all += std::to_string(line.index) + ":" + std::to_string(static_cast<int>(line.type)) +
               "@" + std::to_string(line.timestamp) + "=" + line.text + "|";
    }
    return all;
}

TEST(History, SplitsReceivedBytesAtLineFeeds)
{
    History history(10);
    history.received("one\r\ntwo\nth", 1);
    EXPECT_EQ(lines(history), "0:3@1=one|1:3@1=two|2:3@1=th|");
    history.received("ree", 2);
    history.received("\r", 3);
    history.received("\n\n", 4);
    EXPECT_EQ(lines(history), "0:3@1=one|1:3@1=two|2:3@1=three|3:3@4=|");
    history.received("a\0b\rc"s, 5);
    EXPECT_EQ(history.newest(0).text, "abc");
}

TEST(History, KeepsOpenLinesApart)
{
    History history(10);
    history.sent("l", 1);
    history.received("l", 2);
    history.sent("s\r", 3);
    history.event(LineType::Login, "ann", 4);
    history.received("s\r\n", 5);
    history.event(LineType::Signal, "CTS on", 6);
    EXPECT_EQ(lines(history), "0:2@1=ls|1:3@2=ls|2:0@4=ann|3:4@6=CTS on|");
}

TEST(History, ForgetsTheOldestLines)
{
    History history(3);
    history.received("open", 1);
    for (int i = 0; i < 3; i++) {
        history.event(LineType::Kick, std::to_string(i), 2);
    }
    EXPECT_EQ(lines(history), "1:1@2=0|2:1@2=1|3:1@2=2|");
    // The open line is gone: its rest is a line of its own.
    history.received(" rest\n", 3);
    EXPECT_EQ(lines(history), "2:1@2=1|3:1@2=2|4:3@3= rest|");
}

TEST(History, CutsLinesThatDoNotEnd)
{
    History history(10);
    history.received(std::string(4096, 'a') + "\n", 1);
    history.received(std::string(10000, 'b'), 1);
    ASSERT_EQ(history.size(), 4u);
    EXPECT_EQ(history.newest(3).text.size(), 4096u);
    EXPECT_EQ(history.newest(2).text.size(), 4096u);
    EXPECT_EQ(history.newest(0).text.size(), 10000u - 2 * 4096u);
}

} // namespace
} // namespace sim
