// The graphics state record GState with its tagged pool, and the attribute
// stack shared by attribute, solid and object blocks.
#ifndef TRACERY_RI_ATTRIBUTES_H
#define TRACERY_RI_ATTRIBUTES_H

#include <cstddef>
#include <cstdint>

#include "ri/ri.h"

struct TrimLoops;

constexpr uint32_t GSTATE_SHARED = 1u;            // bit 0 of flags: copy before writing
constexpr uint32_t GSTATE_READY_MASK = 0xf8000u;  // bits 15..19, cleared by ready_gstate
constexpr int ATTRIBUTE_STACK_MAX = 128;
// The record size the statistics report in (peak * 288 / 1024 kb).
constexpr int GSTATE_RECORD_BYTES = 288;

class GState {
  public:
    // With a null parent, the defaults; otherwise a copy of *parent.
    explicit GState(const GState* parent);
    // Takes a state from the pool; null (after a report) when the pool is
    // exhausted. noexcept so that a null result skips the constructor.
    static void* operator new(size_t size) noexcept;
    static void operator delete(void* p);
    static void release_memory(int tag);
    static void printstats();

    uint32_t flags;
    uint32_t flags2;
    float color[3];
    float opacity[3];
    float (*ubasis)[4];
    float (*vbasis)[4];
    unsigned char ustep;
    unsigned char vstep;
    unsigned char reserved_byte;
    int* shared_ref;  // reference-counted object; its third word is the count
    // The trim loops of the NuPatches drawn under these attributes (null:
    // none); set by RiTrimCurve, inherited by copies.
    const TrimLoops* trim_loops;

    // requested, peak, outstanding
    static long memstats[3];
};

// Whether RiColor changes the drawing colour (-color / -nocolor).
extern int use_colors;

// Handle of the next RiObjectBegin (0, 1, 2, ...).
extern int object_count;
// Set once RiObjectInstance has warned that it is not supported.
extern int warned_instance;

// Depth of the attribute stack (for tests and diagnostics).
int attribute_stack_depth();
// Empties the attribute stack without touching the states (for resets).
void clear_attribute_stack();
// Sets the depth below which RiAttributeEnd reports an underflow instead of
// closing a level (the levels that enclose a frame); 0 lifts it.
void set_attribute_floor(int depth);
// Whether the current graphics state is a pool state whose lifetime tag
// shares a bit with tag_bits (2: it is released at the end of the frame).
bool current_state_tagged(int tag_bits);
// The lifetime tag of a graphics state (the block level it was made at,
// whose end releases it); -1 for a state not taken from the pool.
int gstate_lifetime_tag(const GState* state);
// Number of blocks in the graphics state pool (for tests and diagnostics).
int gstate_pool_blocks();

#endif  // TRACERY_RI_ATTRIBUTES_H
