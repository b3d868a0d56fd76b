#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/text.h"
#include "text/printable.h"
#include "text/width.h"

namespace {

std::string take(char *text)
{
    const std::string result(text);
    free(text);
    return result;
}

TEST(Printable, ReplacesControlCharactersAndBadBytes)
{
    const struct {
        const char *text, *shown, *shown_as_latin1;
    } rows[] = {
        {"", "", ""},
        {"plain ~", "plain ~", "plain ~"},
        {"a\033[2Jb", "a?[2Jb", "a?[2Jb"},
        {"a\r\n\tb\001\177", "a???b??", "a\r\n\tb??"},
        {"é€😀", "é€😀", "Ã©â?¬ð???"},
        {"\xc2\x80 \xc2\x9b \xc2\x9f \u00a0", "? ? ? \u00a0", "Â? Â? Â? Â\u00a0"},
        {"a\u202eb\u2066c\u200f", "a?b?c?", "aâ?®bâ?¦câ??"}, // turn the order of what follows
        {"\x9b \xc3 \xff\xfe", "? ? ??", "? Ã ÿþ"},
        {"\xc0\x8a \xe0\x80\x8a", "?? ???", "À? à??"},                  // overlong
        {"\xed\xa0\x80 \xf4\x90\x80\x80", "??? ????", "í\u00a0? ô???"}, // surrogate, too large
        {"\xe2\x82", "??", "â?"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.shown, take(printable_copy(row.text))) << row.text;
        EXPECT_EQ(row.shown_as_latin1, take(printable_latin1(row.text))) << row.text;
    }
}

TEST(Utf8, DecodesEveryCharacter)
{
    for (uint32_t code_point = 0; code_point <= 0x10ffff; code_point += 7) {
        if (code_point >= 0xd800 && code_point <= 0xdfff) {
            continue;
        }
        const std::string bytes = support::utf8(code_point);
        const size_t length = bytes.size();
        const Character character = decode_character(bytes);
        ASSERT_TRUE(character.valid) << code_point;
        ASSERT_EQ(code_point, character.code_point);
        ASSERT_EQ(length, character.length);
        for (size_t part = 1; part < length; part++) {
            ASSERT_EQ(part, incomplete_tail({bytes.data(), part})) << code_point;
        }
        ASSERT_EQ(0U, incomplete_tail(bytes));
    }
    EXPECT_EQ(0U, incomplete_tail(""));
    EXPECT_EQ(2U, incomplete_tail("€\xe2\x82"));
    EXPECT_EQ(0U, incomplete_tail("\x82\x82\x82\x82"));
    EXPECT_EQ(0U, incomplete_tail("\xff"));
}

TEST(Width, IsThatOfTheTerminal)
{
    const struct {
        uint32_t code_point;
        int width;
    } rows[] = {{'a', 1},    {0xe9, 1},   {0x300, 0},  {0x2500, 1},  {0x20ac, 1}, {0x4e2d, 2},
                {0x200b, 0}, {0xac00, 2}, {0xff21, 2}, {0x1f600, 2}, {0xfe0f, 0}, {0xfffd, 1},
                {0x3040, 2}, {0x303f, 1}, {0x1100, 2}, {0x10ffff, 1}};
    for (const auto &row : rows) {
        EXPECT_EQ(row.width, character_width(row.code_point)) << std::hex << row.code_point;
    }
}

} // namespace
