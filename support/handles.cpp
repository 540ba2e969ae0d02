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

void HandleTable::index_new_entries() {
    for (; indexed_ < count; ++indexed_) index_.emplace(entries[indexed_].id, indexed_);
}

HandleEntry* HandleTable::find(int id) {
    index_new_entries();
    auto it = index_.find(id);
    return it == index_.end() ? nullptr : &entries[it->second];
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
    indexed_ = 0;
}
