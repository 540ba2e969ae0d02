// Tests of the number-to-handle table: growth, order, overwrite and lookup.
#include "support/handles.h"

#include <gtest/gtest.h>

namespace {

int values[20];

TEST(HandleTable, GrowthOrderOverwriteAndClear) {
    HandleTable table;
    EXPECT_EQ(table.get(0), nullptr);  // no storage yet
    for (int i = 0; i < 8; ++i) table.set(100 - i, &values[i]);
    EXPECT_EQ(table.capacity, 8);
    table.set(-7, &values[8]);
    EXPECT_EQ(table.capacity, 16);
    EXPECT_EQ(table.count, 9);
    for (int i = 0; i < 8; ++i) {
        EXPECT_EQ(table.entries[i].id, 100 - i);
        EXPECT_EQ(table.get(100 - i), &values[i]);
    }
    EXPECT_EQ(table.get(-7), &values[8]);
    EXPECT_EQ(table.get(0), nullptr);

    HandleEntry* first = table.set(100, &values[2]);  // a number set again: overwritten in place
    EXPECT_EQ(first, &table.entries[0]);
    EXPECT_EQ(table.count, 9);
    EXPECT_EQ(table.get(100), &values[2]);
    HandleEntry* entry = table.makespace();
    entry->id = 42;
    entry->value = &values[1];
    EXPECT_EQ(table.get(42), &values[1]);

    table.clear();
    EXPECT_EQ(table.capacity, 0);
    EXPECT_EQ(table.count, 0);
    EXPECT_EQ(table.get(42), nullptr);
    table.set(5, &values[5]);
    EXPECT_EQ(table.get(5), &values[5]);
}

// Many numbers, negative ones and ones sharing all their low bits among them,
// each found with its own value; numbers never set are not found.
TEST(HandleTable, ManyNumbersWithSharedLowBits) {
    HandleTable table;
    const int n = 50000;
    for (int i = 0; i < n; ++i) {
        int id = (i % 2 ? -i : i) * 1024;
        table.set(id, &values[i % 20]);
    }
    EXPECT_EQ(table.count, n);
    for (int i = 0; i < n; ++i) {
        int id = (i % 2 ? -i : i) * 1024;
        ASSERT_EQ(table.get(id), &values[i % 20]) << id;
        ASSERT_EQ(table.find(id + 1), nullptr);
    }
}

}  // namespace
