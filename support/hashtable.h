// The scoped, chained string table: intrusive entries keyed by name, PJW
// hashing, lookup statistics, and scope/level tags for dropping entries.
#ifndef TRACERY_SUPPORT_HASHTABLE_H
#define TRACERY_SUPPORT_HASHTABLE_H

#include <cstdint>
#include <ostream>

// The classic PJW/ELF string hash on unsigned bytes; null or "" hash to 0.
uint32_t pjw_hash(const char* name);

class HashTableEntry {
  public:
    explicit HashTableEntry(const char* name);
    virtual ~HashTableEntry();

    const char* name;  // the key; stored, never copied or freed
    uint32_t hash;     // pjw_hash(name), computed once
    int scope;
    int level;
    HashTableEntry* next;
};

class HashTable {
  public:
    explicit HashTable(int size);
    virtual ~HashTable();
    HashTable(const HashTable&) = delete;
    HashTable& operator=(const HashTable&) = delete;

    // Inserts at the head of the bucket; with allow_duplicate 0 an equal name
    // already present stops the insertion. Returns 1 if a duplicate was seen.
    int insert(HashTableEntry* entry, int allow_duplicate);
    HashTableEntry* find(const char* name);
    // Deletes every entry whose scope tag is scope; the scope becomes scope - 1.
    void release(int scope);
    // Removes entries whose level tag is the current level (deleting them when
    // destroy is non-zero); the level becomes newlevel.
    void popscope(int newlevel, int destroy);
    void printstats(std::ostream& out);

    HashTableEntry** buckets;
    unsigned int size;
    int scope;
    int level;
    int flag;  // set to 1 at construction and read by nothing: a spare marker
    int lookups;
    int found;
    int misses;
    int probes;
    int added;
    int distinct;
};

#endif  // TRACERY_SUPPORT_HASHTABLE_H
