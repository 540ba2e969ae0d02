// Counted heap wrappers (myalloc, myfree) and the three tagged pools for
// matrices, transformation records and parameter blocks, with the sweep that
// releases a block level's allocations at once.
#include "support/memory.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <sys/mman.h>

#include "math/derived_matrices.h"
#include "math/matrix.h"
#include "math/transformation.h"
#include "ri/renderer.h"
#include "support/error.h"

int totalalloced = 0;
int totalfreed = 0;

namespace {

// The counters wrap rather than overflow on an enormous run.
void count_one(int& counter) {
    counter = static_cast<int>(static_cast<unsigned int>(counter) + 1u);
}

int current_tag() {
    return block_level & 7;
}

// The huge page of x86-64 and of ARM64 with 4 KB pages; elsewhere the
// advice is refused or covers fewer pages, and only the alignment is spent.
constexpr size_t HUGE_PAGE = size_t(2) << 20;

}  // namespace

// A request for 0 bytes asks malloc for 1, so that success never looks like
// failure; a list of megabytes read from a file goes on huge pages.
void* myalloc(size_t size) {
    void* p = alloc_scratch(size);
    count_one(totalalloced);
    if (p == nullptr) {
        std::fprintf(stderr, "Request for %zu bytes\n", size);
        RMError(RIE_NOMEM, RIE_SEVERE, "out of core memory");
    }
    return p;
}

void* alloc_scratch(size_t size) {
    if (size < HUGE_PAGE || size > SIZE_MAX - HUGE_PAGE) return std::malloc(size != 0 ? size : 1);
    const size_t rounded = (size + HUGE_PAGE - 1) / HUGE_PAGE * HUGE_PAGE;
    void* room = std::aligned_alloc(HUGE_PAGE, rounded);
#ifdef MADV_HUGEPAGE
    // Only advice: where it is refused the room keeps small pages.
    if (room != nullptr) madvise(room, rounded, MADV_HUGEPAGE);
#endif
    return room;
}

void myfree(void* p) {
    if (p == nullptr) {
        RMError(RIE_BUG, RIE_ERROR, "attempt by renderer to free NULL pointer");
        return;
    }
    count_one(totalfreed);
    std::free(p);
}

// ---- TaggedPool ----

TaggedPool::TaggedPool(size_t item_size, const char* exhausted_message, bool remembers_chunk)
    : item_size_(item_size),
      exhausted_message_(exhausted_message),
      remembers_chunk_(remembers_chunk) {}

TaggedPool::~TaggedPool() {
    release_chunks();
}

void* TaggedPool::take(int tag) {
    for (int index = current_; index < chunk_count(); ++index) {
        if (chunks_[index].free_slots == 0) continue;
        if (void* slot = take_from(chunks_[index], index, tag)) return slot;
    }
    if (chunk_count() >= chunk_cap_) {
        RMError(RIE_NOMEM, RIE_SEVERE, exhausted_message_);
        return nullptr;
    }
    if (!add_chunk()) return nullptr;
    return take_from(chunks_.back(), chunk_count() - 1, tag);
}

// A slot taken with tag 0 stays free, so the next take returns it again.
void* TaggedPool::take_from(Chunk& chunk, int index, int tag) {
    for (int slot = chunk.first_free; slot < CHUNK_ITEMS; ++slot) {
        if (chunk.tags[slot] != 0) continue;
        unsigned char byte = static_cast<unsigned char>(tag);
        chunk.tags[slot] = byte;
        if (byte != 0) {
            chunk.free_slots -= 1;
            chunk.first_free = slot + 1;
        } else {
            chunk.first_free = slot;
        }
        if (remembers_chunk_) current_ = index;
        return item(chunk, slot);
    }
    chunk.free_slots = 0;  // the count was stale; never trust it again until a sweep
    return nullptr;
}

bool TaggedPool::add_chunk() {
    auto* tags = static_cast<unsigned char*>(myalloc(CHUNK_ITEMS));
    if (tags == nullptr) return false;
    auto* data = static_cast<unsigned char*>(myalloc(CHUNK_ITEMS * item_size_));
    if (data == nullptr) {
        myfree(tags);
        return false;
    }
    std::memset(tags, 0, CHUNK_ITEMS);
    chunks_.push_back(Chunk{tags, data, CHUNK_ITEMS, 0});
    return true;
}

void TaggedPool::sweep(int mask, void (*release)(void* item)) {
    for (Chunk& chunk : chunks_) {
        if (chunk.free_slots == CHUNK_ITEMS) continue;
        for (int slot = 0; slot < CHUNK_ITEMS; ++slot) {
            if ((chunk.tags[slot] & mask) == 0) continue;
            if (release != nullptr) release(item(chunk, slot));
            chunk.tags[slot] = 0;
            chunk.free_slots += 1;
            chunk.first_free = std::min(chunk.first_free, slot);
        }
    }
    current_ = 0;
}

void TaggedPool::release_chunks() {
    for (Chunk& chunk : chunks_) {
        myfree(chunk.tags);
        myfree(chunk.data);
    }
    chunks_.clear();
    current_ = 0;
}

int TaggedPool::find_chunk(const void* p, int* slot) const {
    auto* byte = static_cast<const unsigned char*>(p);
    // The newest chunks are the likeliest owners of a recent item.
    for (int index = chunk_count() - 1; index >= 0; --index) {
        const Chunk& chunk = chunks_[index];
        if (byte < chunk.data || byte >= chunk.data + CHUNK_ITEMS * item_size_) continue;
        size_t offset = static_cast<size_t>(byte - chunk.data);
        if (offset % item_size_ != 0) return -1;
        *slot = static_cast<int>(offset / item_size_);
        return index;
    }
    return -1;
}

int TaggedPool::tag_of(const void* p) const {
    int slot = 0;
    int index = find_chunk(p, &slot);
    return index < 0 ? -1 : chunks_[index].tags[slot];
}

bool TaggedPool::give_back(void* p) {
    int slot = 0;
    int index = find_chunk(p, &slot);
    if (index < 0 || chunks_[index].tags[slot] == 0) return false;
    Chunk& chunk = chunks_[index];
    chunk.tags[slot] = 0;
    chunk.free_slots += 1;
    chunk.first_free = std::min(chunk.first_free, slot);
    current_ = std::min(current_, index);
    return true;
}

// ---- The three pools ----

// The pools are made on first use and never destroyed: whatever a static
// destructor elsewhere still points at stays valid until the process ends.
TaggedPool& matrix_pool() {
    static TaggedPool* pool =
        new TaggedPool(sizeof(float[4][4]), "out of memory for RtMatrix", true);
    return *pool;
}

TaggedPool& transformation_pool() {
    static TaggedPool* pool =
        new TaggedPool(sizeof(Transformation), "out of memory for TRANSFORMATION", true);
    return *pool;
}

// The parameter pool's search always starts from its current chunk, which
// only a sweep sets (to 0).
TaggedPool& param_pool() {
    static TaggedPool* pool =
        new TaggedPool(sizeof(void*), "out of memory for shader params", false);
    return *pool;
}

namespace {

// When a pool is exhausted under a handler that lets the program go on, the
// caller still gets writable storage: one shared item per pool, which later
// overflows overwrite.
float overflow_matrix[4][4];
Transformation overflow_transformation;

void release_param_block(void* item) {
    void*& block = *static_cast<void**>(item);
    if (block == nullptr) return;
    myfree(block);
    block = nullptr;
}

void duplicate_pair(MatrixPtr& matrix, MatrixPtr& inverse) {
    if (matrix == nullptr) return;
    matrix = alloc_RtMatrix(matrix);
    inverse = alloc_RtMatrix(inverse);
}

}  // namespace

float (*alloc_RtMatrix(const float m[4][4]))[4] {
    void* slot = matrix_pool().take(current_tag());
    float(*matrix)[4] = slot ? static_cast<float(*)[4]>(slot) : overflow_matrix;
    if (m == nullptr) {
        make_ident(matrix);
    } else {
        std::memmove(matrix, m, sizeof(float[4][4]));  // m may be this very slot
    }
    return matrix;
}

Transformation* alloc_TRANSFORMATION(const Transformation* t) {
    Transformation copy{};
    if (t != nullptr) {
        settle_derived_matrices(t);
        copy = *t;
        duplicate_pair(copy.matrix0, copy.inverse0);
        duplicate_pair(copy.matrix1, copy.inverse1);
        duplicate_pair(copy.normal0, copy.transpose0);
        duplicate_pair(copy.normal1, copy.transpose1);
        copy.flags &= ~XFORM_SHARED;
    }
    void* slot = transformation_pool().take(current_tag());
    if (slot == nullptr) {
        overflow_transformation = copy;
        return &overflow_transformation;
    }
    return new (slot) Transformation(copy);
}

void free_TRANSFORMATION(Transformation* t) {
    if (t == nullptr || transformation_pool().tag_of(t) <= 0) return;
    forget_derived_matrices(t);
    for (MatrixPtr m : {t->matrix0, t->inverse0, t->matrix1, t->inverse1, t->normal0, t->transpose0,
                        t->normal1, t->transpose1}) {
        if (m != nullptr) matrix_pool().give_back(m);
    }
    transformation_pool().give_back(t);
}

// If the pool is exhausted (and the program goes on), the block is handed out
// untracked and lives until the process ends.
void* alloc_param(int size) {
    return alloc_param_tagged(size, current_tag());
}

void* alloc_param_tagged(int size, int tag) {
    void* slot = param_pool().take(tag & 7);
    void* block = myalloc(static_cast<size_t>(std::max(size, 4)));
    if (slot != nullptr) *static_cast<void**>(slot) = block;
    return block;
}

// With level 0 the chunks themselves go; value blocks still recorded in the
// parameter pool are not freed one by one then (only their pointer arrays).
void free_myallocs(int level) {
    // Deferred matrices are written before their record can go.
    settle_derived_matrices(nullptr);
    int mask = level & 7;
    if (mask == 0) {
        matrix_pool().release_chunks();
        transformation_pool().release_chunks();
        param_pool().release_chunks();
        return;
    }
    matrix_pool().sweep(mask, nullptr);
    transformation_pool().sweep(mask, nullptr);
    param_pool().sweep(mask, release_param_block);
}
