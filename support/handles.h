// Maps the integer numbers a RIB file gives lights and objects to the handles
// the interface procedures returned.
#ifndef TRACERY_SUPPORT_HANDLES_H
#define TRACERY_SUPPORT_HANDLES_H

struct HandleEntry {
    HandleEntry() : value(nullptr), id(0) {}
    void* value;
    int id;
};

class HandleTable {
public:
    HandleEntry* find(int id);
    void* get(int id);
    HandleEntry* set(int id, void* value);
    HandleEntry* makespace();
    // Frees the storage (the table is then empty again).
    void clear();

    HandleEntry* entries = nullptr;
    int capacity = 0;
    int count = 0;
};

#endif  // TRACERY_SUPPORT_HANDLES_H
