// The scoped, chained string table: intrusive entries keyed by name, PJW
// hashing, lookup statistics, scope/level tags for dropping entries, and
// (for tables made to grow) rehashing past a load factor.
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

// A table keeps the number of buckets it was made with unless it is made
// growing: then, whenever an insertion leaves more live entries than buckets,
// the buckets are doubled (2n + 1, so the count stays odd) and every chain is
// redistributed. Chains stay short however many names a file declares, so a
// lookup stays one hash and a step or two. A fixed table behaves exactly as a
// plain chained table, which is what the scope tests and small tables want.
class HashTable {
  public:
    explicit HashTable(int size, bool grows = false);
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
    // The statistics report. After a growth the figures describe the table
    // as it now is: size is the new bucket count, distinct the number of
    // buckets that the redistribution filled plus the empty buckets filled
    // by insertions since; added, lookups, found, misses and probes count
    // every operation since construction.
    void printstats(std::ostream& out);
    // Entries currently linked into the table.
    unsigned int entry_count() const { return live_; }
    // Number of times the buckets were redistributed.
    int growths() const { return growths_; }

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

  private:
    void grow();
    void unlinked(HashTableEntry* entry, int destroy);

    bool grows_;
    unsigned int live_ = 0;
    int growths_ = 0;
};

#endif  // TRACERY_SUPPORT_HASHTABLE_H
