#include <gtest/gtest.h>

#include <algorithm>

#include "parsed.h"

namespace {

// Every kind of value and token; what it is as one text in the canonical form.
const std::string SAMPLE = "{\"a\" : [1,-20,3.5,1e3, {} ,[ ],\"\"] ,\"b\\n\\u00e9\":\r\n"
                           "{\"c\":null,\"d\":true,\"e\":false}}null\"x\\\"\\\\/\\ud83d\\ude00\"[]"
                           "\t12 -0.5 true{\"k\":\"\xff\xc3\"}123456789012345678901 ";
const std::string SAMPLE_VALUES = "{\"a\":[1,-20,3.5,1000,{},[],\"\"],\"b\\n\xc3\xa9\":"
                                  "{\"c\":null,\"d\":true,\"e\":false}};null;"
                                  "\"x\\\"\\\\/\xf0\x9f\x98\x80\";[];12;-0.5;true;"
                                  "{\"k\":\"\xff\xc3\"};9223372036854775807;";

TEST(JsonStream, TakesValuesCutAnywhere)
{
    Parsed parsed;
    for (size_t first = 0; first <= SAMPLE.size(); ++first) {
        EXPECT_TRUE(parsed.feed(std::string_view(SAMPLE).substr(0, first)));
        EXPECT_TRUE(parsed.feed(std::string_view(SAMPLE).substr(first)));
        EXPECT_EQ(parsed.take(), SAMPLE_VALUES) << "cut at " << first;
    }
    for (const char byte : SAMPLE) {
        EXPECT_TRUE(parsed.feed({&byte, 1}));
    }
    EXPECT_EQ(parsed.take(), SAMPLE_VALUES);
}

TEST(JsonStream, DeliversWithTheLastByte)
{
    for (const char *text : {"{}", "[1,[2]]", "\"a\"", "\"\"", "null", "true", "false"}) {
        Parsed parsed;
        const std::string_view value = text;
        EXPECT_TRUE(parsed.feed(value.substr(0, value.size() - 1)));
        EXPECT_EQ(parsed.take(), "") << text;
        EXPECT_TRUE(parsed.feed(value.substr(value.size() - 1)));
        EXPECT_EQ(parsed.take(), value.data() + std::string(";")) << text;
    }
}

// Between two values, and within one.
void expect_dropped(std::string_view bad)
{
    Parsed parsed("{\"before\":[\"");
    parsed.feed("\"]}");
    EXPECT_FALSE(parsed.feed(bad)) << bad;
    EXPECT_TRUE(parsed.feed("{\"after\":[true]}")) << bad;
    EXPECT_EQ(parsed.take(), "{\"before\":[\"\"]};{\"after\":[true]};") << bad;
    EXPECT_FALSE(parsed.feed(std::string("[{\"kept\":[7,\"8\"]},") + std::string(bad) + "\1"));
    EXPECT_TRUE(parsed.feed("[9]"));
    EXPECT_EQ(parsed.take(), "[9];") << bad;
}

TEST(JsonStream, DropsMalformedChunksOnly)
{
    using namespace std::string_view_literals;
    const std::vector<std::string_view> groups[] = {
        {"}", "]", ",", ":", "{]", "[}", "[,", "[1,]", "[1 2"},
        {"{1", "{null", "{\"a\" 1", "{\"a\":1,}", "{\"a\",\"b\"", "{\"a\":}{\"b\":1}"},
        {"nul}", "truth", "'a'", "// c", "NaN", "\xff", "\xef\xbb\xbf"},
        {"+1", "-x", "[.5", "[01]", "[1e]", "[1-2]", "[1.2.3]"},
        {"\"\\x\"", "\"\\u12g4\""},
        {"\0"sv, "nul\0"sv, "{\"a\":\0"sv, "\"a\0b\""sv, "[\"a\\\0\"]"sv},
    };
    for (const auto &group : groups) {
        std::for_each(group.begin(), group.end(), expect_dropped);
    }
    Parsed parsed;
    EXPECT_FALSE(parsed.feed("null{}12\0{}"sv));
    EXPECT_EQ(parsed.take(), "null;{};12;") << "what was complete before the error";
}

TEST(JsonStream, LimitsDepth)
{
    const std::string deepest = std::string(64, '[') + std::string(64, ']');
    Parsed parsed;
    EXPECT_TRUE(parsed.feed(deepest));
    EXPECT_EQ(parsed.take(), deepest + ";");
    EXPECT_FALSE(parsed.feed("[" + deepest + "]"));
    EXPECT_FALSE(parsed.feed(std::string(1000000, '[')));
    std::string objects;
    for (int i = 0; i < 65; ++i) {
        objects += "{\"a\":";
    }
    EXPECT_FALSE(parsed.feed(objects));
    EXPECT_TRUE(parsed.feed(deepest));
    EXPECT_EQ(parsed.take(), deepest + ";");
}

// Feeds the piece until it fails or that many bytes are taken; returns the bytes taken.
size_t feed_until_failure(Parsed &parsed, std::string_view piece, size_t bytes)
{
    size_t taken = 0;
    while (taken < bytes && parsed.feed(piece)) {
        taken += piece.size();
    }
    return taken;
}

TEST(JsonStream, LimitsSize)
{
    constexpr size_t MEGABYTE = 1024 * 1024;
    const std::string letters(4096, 'a');
    Parsed parsed;
    EXPECT_TRUE(parsed.feed("{\"a\":\"\\n"));
    EXPECT_EQ(feed_until_failure(parsed, letters, 16 * MEGABYTE), 16 * MEGABYTE);
    EXPECT_TRUE(parsed.feed("\"}"));
    ASSERT_EQ(parsed.values.size(), 1u);
    const struct node *text = node_object_get(parsed.values[0], "a");
    EXPECT_EQ(strlen(node_get_string(text)), 16 * MEGABYTE + 1);
    std::string arrays;
    for (int i = 0; i < 1000; ++i) {
        arrays += "[],";
    }
    const struct {
        const char *begin;
        const std::string &piece;
    } endless[] = {{"[\"", letters}, {"{\"", letters}, {"[", arrays}};
    for (const auto &[begin, piece] : endless) {
        parsed.clear();
        EXPECT_TRUE(parsed.feed(begin));
        const size_t taken = feed_until_failure(parsed, piece, 64 * MEGABYTE);
        EXPECT_LT(taken, 18 * MEGABYTE) << begin;
        EXPECT_GT(taken, 3 * MEGABYTE) << begin;
        EXPECT_TRUE(parsed.feed("{}"));
        EXPECT_EQ(parsed.take(), "{};") << begin;
    }
}

} // namespace
