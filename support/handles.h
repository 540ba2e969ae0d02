// Maps the integer numbers a RIB file gives lights and objects to the handles
// the interface procedures returned.
#ifndef TRACERY_SUPPORT_HANDLES_H
#define TRACERY_SUPPORT_HANDLES_H

#include <vector>

struct HandleEntry {
    HandleEntry() : value(nullptr), id(0) {}
    void* value;
    int id;
};

// Entries are kept in order of first use in one array that doubles when full
// (8 entries first). Each number is stored once; setting it again overwrites
// its value in place.
class HandleTable {
  public:
    HandleTable() = default;
    ~HandleTable();
    HandleTable(const HandleTable&) = delete;
    HandleTable& operator=(const HandleTable&) = delete;

    // The entry for id, or null.
    HandleEntry* find(int id);
    // The handle stored under id, or null.
    void* get(int id);
    // Stores value under id; null only if no room could be made (reported).
    HandleEntry* set(int id, void* value);
    // Room for one more entry, counted in use; null (after a report) when
    // the storage cannot grow.
    HandleEntry* makespace();
    // Frees the storage (the table is then empty again).
    void clear();

    HandleEntry* entries = nullptr;
    int capacity = 0;
    int count = 0;

  private:
    // id -> position of its first entry. A linear search of the entries
    // would give the same answers and is fine for the few lights of a typical
    // file, but a RIB file may number any amount of objects. Entries are
    // indexed lazily by find, so an entry filled in after makespace is found
    // like one made by set.
    //
    // The index is an open-addressed table of positions (-1 free), at most
    // half full, probed linearly from a hash of the id: four
    // bytes per slot, about twelve per entry, where a node-based map costs
    // over forty.
    void index_new_entries();
    bool index_entry(int position);
    int* slot_for(int id);
    std::vector<int> index_;
    unsigned int index_mask_ = 0;
    int indexed_ = 0;
};

#endif  // TRACERY_SUPPORT_HANDLES_H
