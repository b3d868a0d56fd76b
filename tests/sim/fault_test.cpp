#include "sim/fault.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

// What becomes of the replies "ab" and "cd" to the commands X and Y: delay, bytes and hang-up of
// each piece.
std::string plan(const std::vector<std::array<const char *, 2>> &settings)
{
    Faults faults;
    std::string error;
    for (auto [name, value] : settings) {
        EXPECT_TRUE(parse_fault(faults, name, value, error)) << error;
    }
    ReplyPlan plan;
    std::deque<Piece> pieces;
    plan.add(faults, "X", "ab", pieces);
    plan.add(faults, "Y", "cd", pieces);
    std::string text;
    for (const Piece &piece : pieces) {
        bool garbage = piece.bytes.starts_with('\xff');
        text += std::to_string(piece.delay) + ":" + (garbage ? "?" : piece.bytes);
        text += piece.hang_up == Sockets::None ? " " : "! ";
    }
    return text;
}

TEST(Fault, PlansReplies)
{
    EXPECT_EQ(plan({}), "0:ab 0:cd ");
    EXPECT_EQ(plan({{"delay", "7"}}), "7:ab 7:cd ");
    EXPECT_EQ(plan({{"split", "0"}}), "0:a 0:b 0:c 0:d ");
    EXPECT_EQ(plan({{"split", "3"}, {"delay", "9"}}), "9:a 3:b 9:c 3:d ");
    EXPECT_EQ(plan({{"coalesce", "2"}}), "0:abcd ");
    EXPECT_EQ(plan({{"coalesce", "3"}}), "");
    EXPECT_EQ(plan({{"garbage", "5"}, {"delay", "1"}}), "1:? 5:ab 1:? 5:cd ");
    EXPECT_EQ(plan({{"mute", ""}, {"garbage", "1"}}), "");
    EXPECT_EQ(plan({{"extra", "{}"}}), "0:ab{} 0:cd{} ");
    EXPECT_EQ(plan({{"only", "Y"}, {"delay", "4"}}), "0:ab 4:cd ");
    EXPECT_EQ(plan({{"hangup", "cmd:2"}}), "0:ab 0:! ");
    EXPECT_EQ(plan({{"hangup", "both:1:1"}}), "0:a 0:! 0:cd ");
    EXPECT_EQ(plan({{"hangup", "data:2:99"}}), "0:ab 0:cd 0:! ");
    EXPECT_EQ(plan({{"delay", "4"}, {"none", ""}}), "0:ab 0:cd ");
}

} // namespace
} // namespace sim
