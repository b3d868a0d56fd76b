#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "dep/trell.h"

namespace {

std::string joined(const struct string_list *list, const char *separator)
{
    char *text = sl_join(list, separator);
    std::string copy = text != nullptr ? text : "(none)";
    free(text);
    return copy;
}

TEST(StringList, GrowsByEveryKindOfAppend)
{
    struct string_list *list = _sl_new("first");
    const char *const more[] = {"a", "", "c"};
    EXPECT_TRUE(_sl_append(list, "second"));
    EXPECT_TRUE(sl_appendn(list, more, 3));
    EXPECT_TRUE(sl_appendn(list, nullptr, 0));
    EXPECT_TRUE(sl_append_printf(list, "%s-%.f", "printed", 41.6));
    EXPECT_TRUE(sl_append_printf(list, "%s", std::string(10000, 'x').c_str()));
    EXPECT_EQ(joined(list, "|"), "first|second|a||c|printed-42|" + std::string(10000, 'x'));
    EXPECT_FALSE(_sl_append(list, nullptr));
    EXPECT_EQ(sl_len(list), 7u);
    sl_free(list);

    list = _sl_new(nullptr);
    EXPECT_EQ(sl_len(list), 0u);
    EXPECT_EQ(joined(list, ", "), "");
    sl_free(list);
}

} // namespace
