// The scoped, chained string table: PJW hashing, head insertion with the
// duplicate rule, counted lookups, scope/level removal, growth by
// redistribution and the statistics report.
#include "support/hashtable.h"

#include <climits>
#include <cstring>
#include <new>
#include <vector>

namespace {

// Statistics counters are plain ints; they wrap instead of overflowing so a
// run with billions of lookups stays well defined.
void count_one(int& counter) {
    counter = static_cast<int>(static_cast<unsigned int>(counter) + 1u);
}

bool same_name(const char* a, const char* b) {
    if (a == b) return true;
    return a != nullptr && b != nullptr && std::strcmp(a, b) == 0;
}

bool entry_matches(const HashTableEntry* entry, uint32_t hash, const char* name) {
    return entry->hash == hash && same_name(entry->name, name);
}

}  // namespace

uint32_t pjw_hash(const char* name) {
    uint32_t h = 0;
    if (name == nullptr) return 0;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(name); *p; ++p) {
        h = (h << 4) + *p;
        uint32_t g = h & 0xF0000000u;
        if (g != 0) {
            h ^= g >> 24;
            h ^= g;
        }
    }
    return h;
}

HashTableEntry::HashTableEntry(const char* entry_name)
    : name(entry_name), hash(pjw_hash(entry_name)), scope(0), level(0), next(nullptr) {}

HashTableEntry::~HashTableEntry() = default;

// A table asked for no buckets (or a negative number) gets one, so that the
// modulo below can never divide by zero.
HashTable::HashTable(int bucket_count, bool grows)
    : buckets(nullptr),
      size(bucket_count > 0 ? static_cast<unsigned int>(bucket_count) : 1u),
      scope(0),
      level(0),
      flag(1),
      lookups(0),
      found(0),
      misses(0),
      probes(0),
      added(0),
      distinct(0),
      grows_(grows) {
    buckets = new HashTableEntry*[size]();
}

HashTable::~HashTable() {
    for (unsigned int b = 0; b < size; ++b) {
        HashTableEntry* entry = buckets[b];
        while (entry != nullptr) {
            HashTableEntry* next = entry->next;
            delete entry;
            entry = next;
        }
        buckets[b] = nullptr;
    }
    delete[] buckets;
}

int HashTable::insert(HashTableEntry* entry, int allow_duplicate) {
    HashTableEntry** head = &buckets[entry->hash % size];
    int duplicate = 0;
    for (HashTableEntry* e = *head; e != nullptr; e = e->next) {
        if (!entry_matches(e, entry->hash, entry->name)) continue;
        duplicate = 1;
        if (!allow_duplicate) return 1;
    }
    entry->next = *head;
    *head = entry;
    entry->scope = scope;
    entry->level = level;
    count_one(added);
    if (entry->next == nullptr) count_one(distinct);
    ++live_;
    if (grows_ && live_ > size) grow();
    return duplicate;
}

// Redistributes every chain over 2n + 1 buckets. Each old chain is walked
// from its tail, and every entry pushed onto the head of its new bucket, so
// entries that meet again in one bucket keep their order: a duplicate
// inserted later still shadows the older one. distinct becomes the number of
// buckets filled. If the larger array cannot be had, the table keeps its
// buckets and only its chains get longer.
void HashTable::grow() {
    if (size > (UINT_MAX - 1) / 2) return;
    unsigned int new_size = size * 2 + 1;
    HashTableEntry** fresh = new (std::nothrow) HashTableEntry*[new_size]();
    if (fresh == nullptr) return;
    std::vector<HashTableEntry*> chain;
    int filled = 0;
    for (unsigned int b = 0; b < size; ++b) {
        chain.clear();
        for (HashTableEntry* e = buckets[b]; e != nullptr; e = e->next) chain.push_back(e);
        for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
            HashTableEntry*& head = fresh[(*it)->hash % new_size];
            if (head == nullptr) ++filled;
            (*it)->next = head;
            head = *it;
        }
    }
    delete[] buckets;
    buckets = fresh;
    size = new_size;
    distinct = filled;
    ++growths_;
}

// Bookkeeping for an entry just taken out of its chain.
void HashTable::unlinked(HashTableEntry* entry, int destroy) {
    --live_;
    if (destroy) {
        delete entry;
    } else {
        entry->next = nullptr;
    }
}

HashTableEntry* HashTable::find(const char* name) {
    uint32_t hash = pjw_hash(name);
    count_one(lookups);
    for (HashTableEntry* e = buckets[hash % size]; e != nullptr; e = e->next) {
        if (entry_matches(e, hash, name)) {
            count_one(found);
            return e;
        }
        count_one(probes);
    }
    count_one(misses);
    return nullptr;
}

void HashTable::release(int released_scope) {
    for (unsigned int b = 0; b < size; ++b) {
        HashTableEntry** link = &buckets[b];
        while (*link != nullptr) {
            HashTableEntry* e = *link;
            if (e->scope == released_scope) {
                *link = e->next;
                unlinked(e, 1);
            } else {
                link = &e->next;
            }
        }
    }
    scope = released_scope - 1;
}

void HashTable::popscope(int newlevel, int destroy) {
    for (unsigned int b = 0; b < size; ++b) {
        HashTableEntry** link = &buckets[b];
        while (*link != nullptr) {
            HashTableEntry* e = *link;
            if (e->level != level) {
                link = &e->next;
                continue;
            }
            *link = e->next;
            unlinked(e, destroy);
        }
    }
    level = newlevel;
}

// An empty table divides 0 by 0 and a table never searched divides by 0;
// the resulting NaN or infinity is printed as the stream prints it.
void HashTable::printstats(std::ostream& out) {
    float per_bucket = static_cast<float>(added) / static_cast<float>(distinct);
    float probe_ratio = static_cast<float>(probes) / static_cast<float>(lookups);
    out << "Symbol table statistics:\n";
    out << "  " << added << " entries added to table in " << distinct << " distinct buckets\n";
    out << "  " << 100.0 * distinct / static_cast<double>(size) << "% of buckets used, avg. "
        << per_bucket << " entries per bucket.\n";
    out << "  " << lookups << " total lookups, " << found << " found, " << misses << " misses.\n";
    out << "  " << probes << " extra chain walking steps ("
        << 1.0 + static_cast<double>(probe_ratio) << " probes per lookup)\n";
    out.flush();
}
