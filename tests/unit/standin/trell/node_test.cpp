#include <gtest/gtest.h>

#include <cmath>

#include "parsed.h"

namespace {

TEST(Node, GettersTakeAnyType)
{
    struct Row {
        const char *json;
        const char *text;
        int64_t integer;
        double real;
        bool boolean;
    } const rows[] = {
        {"\"12\"", "12", 0, 0, false},
        {"\"a\\u0000b\"", "a", 0, 0, false},
        {"null", "", 0, 0, false},
        {"true", "", 0, 0, true},
        {"[1]", "", 0, 0, false},
        {"{\"a\":1}", "", 0, 0, false},
        {"-7 ", "", -7, -7, false},
        {"41.6 ", "", 41, 41.6, false},
        {"-41.6 ", "", -41, -41.6, false},
        {"999999999999999999 ", "", 999999999999999999, 1e18, false},
        {"9223372036854775807 ", "", INT64_MAX, 9223372036854775808.0, false},
        {"99999999999999999999 ", "", INT64_MAX, 9223372036854775808.0, false},
        {"-99999999999999999999 ", "", INT64_MIN, -9223372036854775808.0, false},
        {"1e30 ", "", INT64_MAX, 1e30, false},
        {"-1e400 ", "", INT64_MIN, -HUGE_VAL, false},
    };
    for (const Row &row : rows) {
        const Parsed parsed(row.json);
        ASSERT_EQ(parsed.values.size(), 1u) << row.json;
        const struct node *value = parsed.values[0];
        EXPECT_STREQ(node_get_string(value), row.text) << row.json;
        EXPECT_EQ(node_get_integer(value), row.integer) << row.json;
        EXPECT_EQ(node_get_real(value), row.real) << row.json;
        EXPECT_EQ(node_get_boolean(value), row.boolean) << row.json;
    }
    EXPECT_STREQ(node_get_string(nullptr), "");
    EXPECT_EQ(node_get_integer(nullptr), 0);
    EXPECT_EQ(node_get_real(nullptr), 0);
    EXPECT_FALSE(node_get_boolean(nullptr));
}

TEST(Node, ObjectKeepsItsMembersInOrder)
{
    struct node *object = node_new_object();
    EXPECT_TRUE(node_object_add(object, "cmd", node_new_string("a/\"\\\x01\n\xff")));
    EXPECT_TRUE(node_object_add(object, "b", node_new_string("old")));
    EXPECT_TRUE(node_object_add(object, "a", node_new_object()));
    EXPECT_EQ(text_of(object), "{\"cmd\":\"a/\\\"\\\\\\u0001\\n\xff\",\"b\":\"old\",\"a\":{}}");
    EXPECT_TRUE(node_object_add(object, "c", node_new_string("")));
    EXPECT_STREQ(node_get_string(node_object_get(object, "b")), "old");
    EXPECT_EQ(node_object_get(object, "d"), nullptr);

    struct node *text = node_object_get(object, "c");
    EXPECT_FALSE(node_object_add(object, "d", nullptr));
    EXPECT_FALSE(node_object_add(text, "d", node_new_object()));
    EXPECT_FALSE(node_object_add(nullptr, "d", node_new_object()));
    EXPECT_EQ(node_object_get(text, "d"), nullptr);
    EXPECT_EQ(node_object_get(nullptr, "d"), nullptr);
    node_free(object);
    node_free(nullptr);
}

TEST(Node, ArrayIsWalkedBothWays)
{
    const Parsed parsed("[0,null,2,[],\"4\"]");
    ASSERT_EQ(parsed.values.size(), 1u);
    const struct node *array = parsed.values[0];
    ASSERT_EQ(node_array_count(array), 5u);
    std::vector<const struct node *> walked;
    for (const struct node *element = node_array_first(array); element != nullptr;
         element = node_array_next(element)) {
        walked.push_back(element);
    }
    ASSERT_EQ(walked.size(), 5u);
    for (const size_t index : {0u, 1u, 4u, 2u, 2u, 3u, 0u}) {
        EXPECT_EQ(node_array_get(array, index), walked[index]) << index;
    }
    EXPECT_EQ(node_array_get(array, 5), nullptr);
    for (const struct node *other : {walked[1], walked[4], static_cast<const node *>(nullptr)}) {
        EXPECT_EQ(node_array_count(other), 0u);
        EXPECT_EQ(node_array_first(other), nullptr);
        EXPECT_EQ(node_array_get(other, 0), nullptr);
    }
    EXPECT_EQ(node_array_first(walked[3]), nullptr);
    EXPECT_EQ(node_array_next(nullptr), nullptr);
}

TEST(Node, StringifyRefusesWhatIsTooDeep)
{
    struct node *deep = node_new_object();
    for (int i = 1; i < 100000; ++i) {
        struct node *outer = node_new_object();
        ASSERT_TRUE(node_object_add(outer, "a", deep));
        deep = outer;
    }
    EXPECT_EQ(json_stringify(deep, 1), nullptr);
    EXPECT_EQ(json_stringify(nullptr, 1), nullptr);
    node_free(deep);
}

} // namespace
