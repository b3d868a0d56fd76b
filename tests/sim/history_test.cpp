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
    history.received(std::string(10000, 'b'), 6); // a line that does not end is cut
    EXPECT_EQ(history.newest(0).text.size(), 10003u - 2 * 4096u);
    EXPECT_EQ(history.newest(1).text.size(), 4096u);
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

} // namespace
} // namespace sim
