// The number-to-handle table: lookup by number, in-place overwrite, and the
// doubling growth of the entry array.
#include "support/handles.h"

#include <climits>
#include <new>

#include "support/error.h"
#include "support/memory.h"

HandleTable::~HandleTable() {
    clear();
}

namespace {

constexpr int FREE_SLOT = -1;
constexpr size_t FIRST_INDEX_SIZE = 16;

// A full avalanche of the id's bits (the 32-bit finaliser of MurmurHash3), so
// that ids sharing their low bits, such as multiples of 1024, still spread
// over the whole index.
unsigned int spread(int id) {
    unsigned int h = static_cast<unsigned int>(id);
    h ^= h >> 16;
    h *= 0x85ebca6bu;
    h ^= h >> 13;
    h *= 0xc2b2ae35u;
    h ^= h >> 16;
    return h;
}

}  // namespace

// The slot holding id's position, or the free slot where it would go.
int* HandleTable::slot_for(int id) {
    for (unsigned int i = spread(id) & index_mask_;; i = (i + 1) & index_mask_) {
        int position = index_[i];
        if (position == FREE_SLOT || entries[position].id == id) return &index_[i];
    }
}

// Doubles the index (re-entering every indexed position) when it would pass
// half full; false if it cannot grow.
bool HandleTable::index_entry(int position) {
    if (static_cast<size_t>(indexed_ + 1) * 2 > index_.size()) {
        size_t grown = index_.empty() ? FIRST_INDEX_SIZE : index_.size() * 2;
        if (grown > (static_cast<size_t>(1) << 31)) return false;
        index_.assign(grown, FREE_SLOT);
        index_mask_ = static_cast<unsigned int>(grown - 1);
        for (int p = 0; p < indexed_; ++p) {
            int* slot = slot_for(entries[p].id);
            if (*slot == FREE_SLOT) *slot = p;
        }
    }
    int* slot = slot_for(entries[position].id);
    if (*slot == FREE_SLOT) *slot = position;  // the first entry of an id wins
    return true;
}

void HandleTable::index_new_entries() {
    while (indexed_ < count && index_entry(indexed_)) ++indexed_;
}

HandleEntry* HandleTable::find(int id) {
    index_new_entries();
    if (index_.empty()) return nullptr;
    int position = *slot_for(id);
    return position == FREE_SLOT ? nullptr : &entries[position];
}

void* HandleTable::get(int id) {
    HandleEntry* entry = find(id);
    return entry ? entry->value : nullptr;
}

HandleEntry* HandleTable::set(int id, void* value) {
    HandleEntry* entry = find(id);
    if (entry == nullptr) {
        entry = makespace();
        if (entry == nullptr) return nullptr;
    }
    entry->value = value;
    entry->id = id;
    return entry;
}

// The new array comes from myalloc (which reports a failure itself); the
// capacity stops doubling before it would overflow an int.
HandleEntry* HandleTable::makespace() {
    if (count >= capacity) {
        if (capacity > INT_MAX / 2) {
            RMError(RIE_NOMEM, RIE_SEVERE, "out of core memory");
            return nullptr;
        }
        int new_capacity = capacity == 0 ? 8 : capacity * 2;
        void* storage = myalloc(sizeof(HandleEntry) * static_cast<size_t>(new_capacity));
        if (storage == nullptr) return nullptr;
        auto* grown = static_cast<HandleEntry*>(storage);
        for (int i = 0; i < new_capacity; ++i) new (&grown[i]) HandleEntry();
        for (int i = 0; i < count; ++i) grown[i] = entries[i];
        if (entries != nullptr) myfree(entries);
        entries = grown;
        capacity = new_capacity;
    }
    count += 1;
    return &entries[count - 1];
}

void HandleTable::clear() {
    if (entries != nullptr) myfree(entries);
    entries = nullptr;
    capacity = 0;
    count = 0;
    index_.clear();
    index_.shrink_to_fit();
    index_mask_ = 0;
    indexed_ = 0;
}
