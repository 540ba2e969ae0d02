// Counted heap wrappers and the three pooled allocators (matrices,
// transformation records, parameter blocks) whose slots carry a lifetime tag
// taken from block_level and are released together by free_myallocs.
#ifndef TRACERY_SUPPORT_MEMORY_H
#define TRACERY_SUPPORT_MEMORY_H

#include <cstddef>

struct Transformation;

// Number of myalloc calls (successful or not) and of myfree calls on a
// non-null pointer.
extern int totalalloced;
extern int totalfreed;

// malloc with counting; a failure prints "Request for %d bytes" and reports
// a severe out-of-memory error.
void* myalloc(size_t size);
// free with counting; a null pointer is reported as an error and not freed.
void myfree(void* p);

// A pooled 4x4 matrix holding a copy of m, or the identity when m is null.
float (*alloc_RtMatrix(const float m[4][4]))[4];
// A pooled transformation record: all zero when t is null, otherwise a copy
// of *t whose matrix pairs are duplicated and whose shared bit is cleared.
Transformation* alloc_TRANSFORMATION(const Transformation* t);
// A block of max(size, 4) bytes released by the sweep of its tag.
void* alloc_param(int size);
// Releases every pooled slot whose tag shares a bit with level & 7; with 0,
// releases the pools' chunks themselves.
void free_myallocs(int level);

#endif  // TRACERY_SUPPORT_MEMORY_H
