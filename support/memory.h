// Counted heap wrappers and the three pooled allocators (matrices,
// transformation records, parameter blocks) whose slots carry a lifetime tag
// taken from block_level and are released together by free_myallocs.
#ifndef TRACERY_SUPPORT_MEMORY_H
#define TRACERY_SUPPORT_MEMORY_H

#include <cstddef>
#include <vector>

struct Transformation;

// Number of myalloc calls (successful or not) and of myfree calls on a
// non-null pointer.
extern int totalalloced;
extern int totalfreed;

// malloc with counting (a block of megabytes placed as alloc_scratch places
// it); a failure prints "Request for %d bytes" and reports
// a severe out-of-memory error.
void* myalloc(size_t size);
// free with counting; a null pointer is reported as an error and not freed.
void myfree(void* p);

// Scratch room of the given size (at least one byte), freed with free(), or
// null when memory runs out; it is not counted and not reported. A room of
// megabytes is placed on huge pages where the system offers them: faulting
// in a mesh's indices and projected vertices 4 KB at a time took a fifth of
// the time of reading them (a fault costs microseconds on a virtual
// machine), and reads from all over the room miss the page tables less.
void* alloc_scratch(size_t size);

// A pooled 4x4 matrix holding a copy of m, or the identity when m is null.
float (*alloc_RtMatrix(const float m[4][4]))[4];
// A pooled transformation record: all zero when t is null, otherwise a copy
// of *t whose matrix pairs are duplicated and whose shared bit is cleared.
Transformation* alloc_TRANSFORMATION(const Transformation* t);
// Gives a record made by alloc_TRANSFORMATION back to its pool at once,
// with the matrices of its pairs, instead of at the sweep of its tag. The
// caller must know that nothing else refers to the record or its matrices.
// Items that are not pooled (or already free) are left alone.
void free_TRANSFORMATION(Transformation* t);
// A block of max(size, 4) bytes released by the sweep of its tag.
void* alloc_param(int size);
// The same, released by the sweep of the given tag (of which only the low
// three bits count, as for block levels) instead of the current level's.
void* alloc_param_tagged(int size, int tag);
// Releases every pooled slot whose tag shares a bit with level & 7; with 0,
// releases the pools' chunks themselves.
void free_myallocs(int level);

// A pool of fixed-size items kept in chunks of CHUNK_ITEMS slots. Every slot
// has a tag byte: 0 means free, otherwise the lifetime tag given when it was
// taken. take() returns the first free slot in chunk order, starting at the
// current chunk; sweep() frees every slot whose tag shares a bit with a mask
// and restarts the search at chunk 0.
//
// Each chunk also keeps its number of free slots and the lowest slot that may
// be free, so that a frame with millions of allocations costs linear time.
// The chunk directory grows on demand up to a cap (65536 chunks, 64 Mi items);
// a fixed directory of 256 chunks is too small for an ordinary large scene
// with hundreds of thousands of attribute blocks in one frame.
class TaggedPool {
  public:
    static constexpr int CHUNK_ITEMS = 1024;
    static constexpr int DEFAULT_CHUNK_CAP = 65536;

    // remembers_chunk: whether take() stores the chunk it found as the
    // current one (the parameter pool does not). exhausted_message is the
    // text of the severe report when the cap is reached.
    TaggedPool(size_t item_size, const char* exhausted_message, bool remembers_chunk);
    ~TaggedPool();
    TaggedPool(const TaggedPool&) = delete;
    TaggedPool& operator=(const TaggedPool&) = delete;

    // A slot tagged tag (a tag of 0 leaves it free), or null after a report
    // (cap reached, or no memory for a new chunk).
    void* take(int tag);
    // Frees every slot whose tag shares a bit with mask, calling release (if
    // given) on each freed item first; the search restarts at chunk 0.
    void sweep(int mask, void (*release)(void* item));
    // Frees the chunks themselves; the pool is empty again.
    void release_chunks();
    // Frees one taken slot before its sweep and lets the search start again
    // at its chunk; false (and nothing changes) when item is not a taken
    // slot of this pool.
    bool give_back(void* item);

    int chunk_count() const { return static_cast<int>(chunks_.size()); }
    int current_chunk() const { return current_; }
    int chunk_cap() const { return chunk_cap_; }
    void set_chunk_cap(int cap) { chunk_cap_ = cap; }
    // The tag of an item taken from this pool, or -1 if it is not one.
    int tag_of(const void* item) const;

  private:
    struct Chunk {
        unsigned char* tags;
        unsigned char* data;
        int free_slots;
        int first_free;  // no slot below this one is free
    };
    void* take_from(Chunk& chunk, int index, int tag);
    // The chunk holding item and its slot there, or -1.
    int find_chunk(const void* item, int* slot) const;
    bool add_chunk();
    unsigned char* item(const Chunk& chunk, int slot) const {
        return chunk.data + slot * item_size_;
    }

    size_t item_size_;
    const char* exhausted_message_;
    bool remembers_chunk_;
    int chunk_cap_ = DEFAULT_CHUNK_CAP;
    int current_ = 0;
    std::vector<Chunk> chunks_;
};

// The three pools behind alloc_RtMatrix, alloc_TRANSFORMATION and alloc_param
// (for inspection by tests).
TaggedPool& matrix_pool();
TaggedPool& transformation_pool();
TaggedPool& param_pool();

#endif  // TRACERY_SUPPORT_MEMORY_H
