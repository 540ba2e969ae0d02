// Tests of the scoped hash table: hashing, the duplicate rule, lookup
// statistics, scope and level removal, and the statistics report.
#include "support/hashtable.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

int destroyed = 0;  // destructor calls of CountedEntry

struct CountedEntry : HashTableEntry {
    explicit CountedEntry(const char* name) : HashTableEntry(name) {}
    ~CountedEntry() override { ++destroyed; }
};

TEST(HashTable, ElfHashOnUnsignedBytes) {
    EXPECT_EQ(pjw_hash(nullptr), 0u);
    EXPECT_EQ(pjw_hash(""), 0u);
    EXPECT_EQ(pjw_hash("printf"), 0x077905a6u);
    EXPECT_EQ(pjw_hash("a_much_longer_parameter_name"), 0x0bce29d5u);  // top nibble folds
    EXPECT_EQ(pjw_hash("\xff\xfe"), 0x10eeu);
}

// One bucket, so every name collides.
TEST(HashTable, DuplicateRuleAndLookupCounters) {
    HashTable table(1);
    auto* older = new HashTableEntry("Cs");
    EXPECT_EQ(table.insert(older, 0), 0);
    EXPECT_EQ(table.insert(new HashTableEntry("Os"), 0), 0);
    EXPECT_EQ((std::vector<int>{table.added, table.distinct}), (std::vector<int>{2, 1}));

    std::string copy = "Cs";  // equal by content only: refused, caller keeps it
    HashTableEntry refused(copy.c_str());
    EXPECT_EQ(table.insert(&refused, 0), 1);
    EXPECT_EQ(table.added, 2);

    EXPECT_EQ(table.find("Cs"), older);    // one probe past "Os"
    EXPECT_EQ(table.find("Ka"), nullptr);  // two probes
    EXPECT_EQ((std::vector<int>{table.lookups, table.found, table.misses, table.probes}),
              (std::vector<int>{2, 1, 1, 3}));

    auto* shadow = new HashTableEntry("Cs");
    EXPECT_EQ(table.insert(shadow, 1), 1);
    EXPECT_EQ((std::vector<int>{table.added, table.distinct}), (std::vector<int>{3, 1}));
    EXPECT_EQ(table.find("Cs"), shadow);
}

// Entries tagged with other scopes or levels stay, in their order; only the
// matching ones are deleted (or, for popscope without destroy, unlinked).
TEST(HashTable, RemovalTouchesOnlyTheMatchingTag) {
    destroyed = 0;
    HashTable table(1);
    CountedEntry* e[4];  // w, y: scope 0; x, z: scope 1; w, x: level 0; y, z: level 1
    const char* names[4] = {"w", "x", "y", "z"};
    for (int i = 0; i < 4; ++i) {
        table.scope = i % 2;
        table.level = i / 2;
        table.insert(e[i] = new CountedEntry(names[i]), 0);
    }
    table.release(1);  // deletes x and z
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(table.scope, 0);
    EXPECT_EQ(table.buckets[0], e[2]);
    EXPECT_EQ(e[2]->next, e[0]);

    table.popscope(0, 0);  // current level 1: unlinks y
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(table.level, 0);
    EXPECT_EQ(table.buckets[0], e[0]);
    EXPECT_EQ(e[2]->next, nullptr);
    table.insert(e[2], 0);
    table.popscope(-1, 1);  // now at level 0: deletes both
    EXPECT_EQ(destroyed, 4);
    EXPECT_EQ(table.buckets[0], nullptr);
}

TEST(HashTable, PrintstatsFormat) {
    HashTable table(4);
    table.insert(new HashTableEntry("a"), 0);  // 97 % 4 = 1
    table.insert(new HashTableEntry("b"), 0);  // 98 % 4 = 2
    table.insert(new HashTableEntry("e"), 0);  // 101 % 4 = 1
    table.find("a");
    table.find("c");  // empty bucket
    std::ostringstream out;
    table.printstats(out);
    EXPECT_EQ(out.str(),
              "Symbol table statistics:\n"
              "  3 entries added to table in 2 distinct buckets\n"
              "  50% of buckets used, avg. 1.5 entries per bucket.\n"
              "  2 total lookups, 1 found, 1 misses.\n"
              "  1 extra chain walking steps (1.5 probes per lookup)\n");
}

int occupied_buckets(const HashTable& table) {
    int used = 0;
    for (unsigned int b = 0; b < table.size; ++b) used += table.buckets[b] != nullptr;
    return used;
}

// A growing table made with 3 buckets takes 20000 names: every name is still
// found, chains stay short, a shadowing duplicate keeps shadowing across the
// redistributions, and the report describes the grown table.
TEST(HashTable, GrowingTableRedistributesAndReportsTruthfully) {
    HashTable table(3, true);
    std::vector<std::string> names;
    for (int i = 0; i < 20000; ++i) names.push_back("name" + std::to_string(i));
    auto* older = new HashTableEntry("Cs");
    table.insert(older, 0);
    auto* shadow = new HashTableEntry("Cs");
    table.insert(shadow, 1);
    for (const std::string& name : names) table.insert(new HashTableEntry(name.c_str()), 0);

    EXPECT_GE(table.size, table.entry_count());
    EXPECT_GT(table.growths(), 5);
    EXPECT_EQ(table.added, 20002);
    EXPECT_EQ(table.distinct, occupied_buckets(table));  // no removals yet
    for (const std::string& name : names) ASSERT_NE(table.find(name.c_str()), nullptr) << name;
    EXPECT_LT(table.probes, 20000);  // under one extra step per lookup on average
    EXPECT_EQ(table.find("Cs"), shadow);

    table.popscope(0, 1);  // every entry has level 0
    EXPECT_EQ(table.entry_count(), 0u);
    EXPECT_EQ(occupied_buckets(table), 0);
}

// A table made without growth keeps its buckets however full it gets.
TEST(HashTable, FixedTableKeepsItsSize) {
    HashTable table(2);
    const char* names[] = {"a", "b", "c", "d", "e"};
    for (const char* name : names) table.insert(new HashTableEntry(name), 0);
    EXPECT_EQ(table.size, 2u);
    EXPECT_EQ(table.growths(), 0);
    EXPECT_EQ(table.entry_count(), 5u);
}

}  // namespace
