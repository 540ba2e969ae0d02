// The graphics state: the GState record and its tagged pool, the attribute
// stack with the solid and object blocks built on it, the patch basis, the
// drawing colour, the attribute requests a wireframe accepts without effect,
// the pixel filter functions and the standard basis matrices.
#include "ri/attributes.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ri/renderer.h"
#include "ri/transforms.h"
#include "ri/user_values.h"
#include "support/error.h"
#include "support/memory.h"

RtBasis RiBezierBasis = {{-1, 3, -3, 1}, {3, -6, 3, 0}, {-3, 3, 0, 0}, {1, 0, 0, 0}};
RtBasis RiBSplineBasis = {{-1.0f / 6, 3.0f / 6, -3.0f / 6, 1.0f / 6},
                          {3.0f / 6, -6.0f / 6, 3.0f / 6, 0},
                          {-3.0f / 6, 0, 3.0f / 6, 0},
                          {1.0f / 6, 4.0f / 6, 1.0f / 6, 0}};
RtBasis RiCatmullRomBasis = {
    {-0.5f, 1.5f, -1.5f, 0.5f}, {1.0f, -2.5f, 2.0f, -0.5f}, {-0.5f, 0, 0.5f, 0}, {0, 1.0f, 0, 0}};
RtBasis RiHermiteBasis = {{2, 1, -2, 1}, {-3, -2, 3, -1}, {0, 1, 0, 0}, {1, 0, 0, 0}};
RtBasis RiPowerBasis = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};

long GState::memstats[3] = {0, 0, 0};
int object_count = 0;
int warned_instance = 0;

namespace {

enum { STAT_REQUESTED = 0, STAT_PEAK = 1, STAT_OUTSTANDING = 2 };

// The pool hands out states in blocks of 512, each with a tag byte per state
// (0 free, else the low byte of block_level when it was taken). A request
// takes the first free state in block order, and release_memory frees by
// tag, as a tag-scanning pool does. Two things differ from a plain scan:
// - Searching is fast: each block keeps its free count and the lowest index
//   that may be free, and the pool remembers the first block that may have a
//   free state, so a request does not rescan full blocks. The state chosen is
//   still the first free one in block order.
// - The block table grows past 128 blocks, up to GSTATE_MAX_BLOCKS, because
//   an ordinary large scene makes hundreds of thousands of attribute blocks
//   in one frame. Past that cap the request is reported as out of memory.
constexpr int GSTATES_PER_BLOCK = 512;
constexpr size_t GSTATE_MAX_BLOCKS = 65536;

struct GStateBlock {
    GState* states;       // GSTATES_PER_BLOCK records
    unsigned char* tags;  // one per record: 0 free, else the lifetime tag
    int free_count;       // number of zero tags
    int lowest_free;      // every tag below this index is non-zero
};

// The table is never destroyed, so the pool stays reachable through exit.
std::vector<GStateBlock>& gstate_blocks = *new std::vector<GStateBlock>();
size_t first_open_block = 0;  // every block below this one is full

void* take_state(GStateBlock& block, int index, unsigned char tag) {
    block.tags[index] = tag;
    if (tag != 0) {
        // A tag of 0 (a request before RiBegin) leaves the state free.
        --block.free_count;
        block.lowest_free = index + 1;
    }
    return &block.states[index];
}

void* take_from_open_block(unsigned char tag) {
    while (first_open_block < gstate_blocks.size() &&
           gstate_blocks[first_open_block].free_count == 0) {
        ++first_open_block;
    }
    if (first_open_block == gstate_blocks.size()) return nullptr;
    GStateBlock& block = gstate_blocks[first_open_block];
    for (int i = block.lowest_free; i < GSTATES_PER_BLOCK; ++i) {
        if (block.tags[i] == 0) return take_state(block, i, tag);
    }
    return nullptr;  // not reached: free_count > 0 means a zero tag exists
}

void* take_from_new_block(unsigned char tag) {
    if (gstate_blocks.size() >= GSTATE_MAX_BLOCKS) {
        RMError(RIE_NOMEM, RIE_SEVERE, "out of memory for graphics state");
        return nullptr;
    }
    auto* tags = static_cast<unsigned char*>(myalloc(GSTATES_PER_BLOCK));
    auto* states = static_cast<GState*>(myalloc(GSTATES_PER_BLOCK * sizeof(GState)));
    if (tags == nullptr || states == nullptr) {
        if (tags) myfree(tags);
        if (states) myfree(states);
        return nullptr;
    }
    std::memset(tags, 0, GSTATES_PER_BLOCK);
    gstate_blocks.push_back({states, tags, GSTATES_PER_BLOCK, 0});
    return take_state(gstate_blocks.back(), 0, tag);
}

// Attribute, solid and object blocks share this stack. Under a handler that
// returns from the severe overflow report, the levels opened past the array
// are only counted: they save nothing and copy no state (changes made in them
// reach the enclosing level), and RiAttributeEnd unwinds them first without
// touching the array. Each still opens and closes a transformation level, so
// the pairing with the transformation stack is kept.
GState* attribute_stack[ATTRIBUTE_STACK_MAX];
int attribute_depth = 0;
int attribute_overflow = 0;
// Levels at or below this depth (overflow levels counted) belong outside the
// frame under way: RiAttributeEnd inside the frame does not close them. Its
// states, and whatever they hold that is released at the frame's end, must
// not outlive the frame, nor must a state older than the frame be given
// anything released with it.
int attribute_floor = 0;

GState* current_gstate() {
    return renderer ? renderer->gstate : nullptr;
}

bool is_standard_basis(const float (*basis)[4]) {
    return basis == RiBezierBasis || basis == RiBSplineBasis || basis == RiCatmullRomBasis ||
           basis == RiHermiteBasis || basis == RiPowerBasis;
}

// A standard basis is kept by address; any other is copied into a pooled
// matrix that lives as long as the current level. Keeps old when the pool
// cannot give a matrix. A basis equal bit for bit to the stored copy keeps
// that copy: a stream that repeats its Basis request without end (the pooled
// matrices live until the frame ends) then reads in flat memory.
float (*stored_basis(RtBasis basis, float (*old)[4]))[4] {
    if (is_standard_basis(basis)) return basis;
    if (old != nullptr && !is_standard_basis(old) &&
        std::memcmp(old, basis, sizeof(RtBasis)) == 0) {
        return old;
    }
    float(*copy)[4] = alloc_RtMatrix(basis);
    return copy ? copy : old;
}

// Returns one state to its block before the sweep of its tag (the
// statistics count it as no longer outstanding); a state that is not a taken
// pool state is left alone.
// The lifetime tag of a taken pool state; -1 for anything else.
int state_tag(const GState* state) {
    auto* byte = reinterpret_cast<const unsigned char*>(state);
    for (size_t b = gstate_blocks.size(); b-- > 0;) {
        const GStateBlock& block = gstate_blocks[b];
        auto* first = reinterpret_cast<const unsigned char*>(block.states);
        if (byte < first || byte >= first + GSTATES_PER_BLOCK * sizeof(GState)) continue;
        const size_t offset = static_cast<size_t>(byte - first);
        if (offset % sizeof(GState) != 0) return -1;
        return block.tags[offset / sizeof(GState)];
    }
    return -1;
}

void give_back_state(GState* state) {
    auto* byte = reinterpret_cast<unsigned char*>(state);
    for (size_t b = gstate_blocks.size(); b-- > 0;) {
        GStateBlock& block = gstate_blocks[b];
        auto* first = reinterpret_cast<unsigned char*>(block.states);
        if (byte < first || byte >= first + GSTATES_PER_BLOCK * sizeof(GState)) continue;
        const size_t offset = static_cast<size_t>(byte - first);
        if (offset % sizeof(GState) != 0) return;
        const int index = static_cast<int>(offset / sizeof(GState));
        if (block.tags[index] == 0) return;
        block.tags[index] = 0;
        ++block.free_count;
        block.lowest_free = std::min(block.lowest_free, index);
        first_open_block = std::min(first_open_block, b);
        --GState::memstats[STAT_OUTSTANDING];
        return;
    }
}

// Departure from keeping every state until its frame ends: the state that
// a closing RiAttributeEnd leaves behind (the copy its RiAttributeBegin made)
// goes back to the pool at once, so that the states of a frame's attribute
// blocks do not pile up. A state that something else keeps is not given
// back: the restored state, one saved by an outer level, or one marked
// shared (anything that retains a state, such as a stored object, must mark
// it so).
// A custom basis copied by RiBasis at the closing level belongs to the
// abandoned state alone (the restored one holds its own, and the level's
// state is copied from nothing else), so it goes back to the pool with the
// state: a stream of attribute blocks that each set a basis then reads in
// flat memory.
void give_back_own_bases(const GState* abandoned, const GState* restored) {
    float(*const mine[2])[4] = {abandoned->ubasis, abandoned->vbasis};
    float(*const kept[2])[4] = {restored ? restored->ubasis : nullptr,
                                restored ? restored->vbasis : nullptr};
    for (int i = 0; i < 2; ++i) {
        if (mine[i] == nullptr || is_standard_basis(mine[i])) continue;
        if (mine[i] == kept[0] || mine[i] == kept[1]) continue;
        if (i == 1 && mine[1] == mine[0]) continue;
        matrix_pool().give_back(mine[i]);
    }
}

void give_back_if_unreferenced(GState* state) {
    if (state == nullptr || state == renderer->gstate) return;
    if (state->flags & GSTATE_SHARED) return;
    for (int i = 0; i < attribute_depth; ++i) {
        if (attribute_stack[i] == state) return;
    }
    give_back_own_bases(state, renderer->gstate);
    give_back_state(state);
}

}  // namespace

GState::GState(const GState* parent) {
    if (parent != nullptr) {
        *this = *parent;
        if (shared_ref != nullptr) ++shared_ref[2];
        return;
    }
    flags = 0x602;
    flags2 = 0;
    for (int i = 0; i < 3; ++i) {
        color[i] = 1.0f;
        opacity[i] = 1.0f;
    }
    ubasis = RiBezierBasis;
    vbasis = RiBezierBasis;
    ustep = RI_BEZIERSTEP;
    vstep = RI_BEZIERSTEP;
    reserved_byte = 0;
    shared_ref = nullptr;
    trim_loops = nullptr;
}

void* GState::operator new(size_t) noexcept {
    ++memstats[STAT_REQUESTED];
    ++memstats[STAT_OUTSTANDING];
    if (memstats[STAT_PEAK] < memstats[STAT_OUTSTANDING]) {
        memstats[STAT_PEAK] = memstats[STAT_OUTSTANDING];
    }
    const auto tag = static_cast<unsigned char>(block_level & 0xff);
    void* state = take_from_open_block(tag);
    if (state == nullptr) state = take_from_new_block(tag);
    if (state == nullptr) --memstats[STAT_OUTSTANDING];
    return state;
}

void GState::operator delete(void*) {}

void GState::release_memory(int tag) {
    if (tag == 0) {
        for (GStateBlock& block : gstate_blocks) {
            myfree(block.tags);
            myfree(block.states);
        }
        gstate_blocks.clear();
        first_open_block = 0;
        return;
    }
    for (GStateBlock& block : gstate_blocks) {
        if (block.free_count == GSTATES_PER_BLOCK) continue;
        for (int i = 0; i < GSTATES_PER_BLOCK; ++i) {
            if ((block.tags[i] & tag) == 0) continue;
            block.tags[i] = 0;
            --memstats[STAT_OUTSTANDING];
            ++block.free_count;
            if (i < block.lowest_free) block.lowest_free = i;
        }
    }
    first_open_block = 0;
}

void GState::printstats() {
    std::fprintf(stderr, "Graphics State stats:\n");
    std::fprintf(stderr,
                 "    GStates allocated: %ld requested, %ld outstanding, %ld peak (%d kb)\n",
                 memstats[STAT_REQUESTED], memstats[STAT_OUTSTANDING], memstats[STAT_PEAK],
                 static_cast<int>(memstats[STAT_PEAK] * GSTATE_RECORD_BYTES / 1024));
    std::fflush(stderr);
}

int gstate_pool_blocks() {
    return static_cast<int>(gstate_blocks.size());
}

int attribute_stack_depth() {
    return attribute_depth + attribute_overflow;
}

void clear_attribute_stack() {
    attribute_depth = 0;
    attribute_overflow = 0;
    attribute_floor = 0;
}

void set_attribute_floor(int depth) {
    attribute_floor = depth;
}

int gstate_lifetime_tag(const GState* state) {
    return state_tag(state);
}

bool current_state_tagged(int tag_bits) {
    GState* state = current_gstate();
    if (state == nullptr) return false;
    int tag = state_tag(state);
    return tag > 0 && (tag & tag_bits) != 0;
}

RtVoid RiAttributeBegin() {
    if (attribute_depth >= ATTRIBUTE_STACK_MAX) {
        RMError(RIE_LIMIT, RIE_SEVERE, "Attribute stack overflow");
        ++attribute_overflow;
        RiTransformBegin();
        return;
    }
    GState* current = current_gstate();
    attribute_stack[attribute_depth++] = current;
    user_attributes_push();
    if (current != nullptr) {
        // An exhausted pool leaves the current state in place.
        GState* copy = new GState(current);
        if (copy != nullptr) {
            copy->flags &= ~GSTATE_SHARED;
            renderer->gstate = copy;
        }
    }
    RiTransformBegin();
}

RtVoid RiAttributeEnd() {
    if (attribute_overflow > 0 && attribute_depth + attribute_overflow > attribute_floor) {
        --attribute_overflow;
        RiTransformEnd();
        return;
    }
    if (attribute_depth == 0 || attribute_depth + attribute_overflow <= attribute_floor) {
        RMError(RIE_NESTING, RIE_ERROR, "Attribute stack underflow");
        return;
    }
    --attribute_depth;
    user_attributes_pop();
    if (renderer != nullptr) {
        GState* abandoned = renderer->gstate;
        renderer->gstate = attribute_stack[attribute_depth];
        give_back_if_unreferenced(abandoned);
    }
    RiTransformEnd();
}

RtVoid RiSolidBegin(RtToken) {
    RiAttributeBegin();
}

RtVoid RiSolidEnd() {
    RiAttributeEnd();
}

// Object blocks called through these procedures are not retained: their
// primitives are drawn where they stand, and RiObjectInstance only warns.
// Objects of a RIB stream are retained by the reader instead (its
// ObjectBegin records the requests and each ObjectInstance reads them again,
// rib/objects.cpp), which is where the RIB files' instances are drawn.
RtObjectHandle RiObjectBegin() {
    RiAttributeBegin();
    return reinterpret_cast<RtObjectHandle>(static_cast<intptr_t>(object_count++));
}

RtVoid RiObjectEnd() {
    RiAttributeEnd();
}

RtVoid RiObjectInstance(RtObjectHandle) {
    if (warned_instance) return;
    RMError(RIE_UNIMPLEMENT, RIE_WARNING, "ObjectInstance not supported in tracery");
    warned_instance = 1;
}

RtVoid RiBasis(RtBasis ubasis, RtInt ustep, RtBasis vbasis, RtInt vstep) {
    if (renderer == nullptr) return;
    GState* state = renderer->ready_gstate();
    if (state == nullptr) return;
    state->ubasis = stored_basis(ubasis, state->ubasis);
    state->vbasis = stored_basis(vbasis, state->vbasis);
    // Steps are bytes: values above 255 wrap.
    state->ustep = static_cast<unsigned char>(ustep);
    state->vstep = static_cast<unsigned char>(vstep);
}

// The colour is not kept in the graphics state: it changes the drawing
// colour at once, and an RiAttributeEnd does not bring the earlier one back.
RtVoid RiColor(RtColor color) {
    if (motion_guard()) return;
    if (!use_colors || renderer == nullptr || color == nullptr) return;
    renderer->set_color(color);
}

// ---- Attributes that take part in motion blocks but change nothing drawn ----

RtVoid RiOpacity(RtColor) {
    motion_guard();
}
RtVoid RiBound(RtBound) {
    motion_guard();
}
RtVoid RiDetail(RtBound) {
    motion_guard();
}

RtVoid RiSurface(RtToken, ...) {
    motion_guard();
}
RtVoid RiSurfaceV(RtToken, RtInt, RtToken[], RtPointer[]) {
    motion_guard();
}
RtVoid RiAtmosphere(RtToken, ...) {
    motion_guard();
}
RtVoid RiAtmosphereV(RtToken, RtInt, RtToken[], RtPointer[]) {
    motion_guard();
}
RtVoid RiInterior(RtToken, ...) {
    motion_guard();
}
RtVoid RiInteriorV(RtToken, RtInt, RtToken[], RtPointer[]) {
    motion_guard();
}
RtVoid RiExterior(RtToken, ...) {
    motion_guard();
}
RtVoid RiExteriorV(RtToken, RtInt, RtToken[], RtPointer[]) {
    motion_guard();
}
RtVoid RiDisplacement(RtToken, ...) {
    motion_guard();
}
RtVoid RiDisplacementV(RtToken, RtInt, RtToken[], RtPointer[]) {
    motion_guard();
}
RtVoid RiDeformation(RtToken, ...) {
    motion_guard();
}
RtVoid RiDeformationV(RtToken, RtInt, RtToken[], RtPointer[]) {
    motion_guard();
}

// Every light is handle 0.
RtLightHandle RiLightSource(RtToken, ...) {
    motion_guard();
    return nullptr;
}
RtLightHandle RiLightSourceV(RtToken, RtInt, RtToken[], RtPointer[]) {
    motion_guard();
    return nullptr;
}
RtLightHandle RiAreaLightSource(RtToken, ...) {
    motion_guard();
    return nullptr;
}
RtLightHandle RiAreaLightSourceV(RtToken, RtInt, RtToken[], RtPointer[]) {
    motion_guard();
    return nullptr;
}

// ---- Accepted without any effect; the arguments are not examined ----

RtVoid RiShadingInterpolation(RtToken) {}
RtVoid RiMatte(RtBoolean) {}
RtVoid RiGeometricApproximation(RtToken, RtFloat) {}
RtVoid RiGeometricRepresentation(RtToken) {}
RtVoid RiReverseOrientation() {}
RtVoid RiOrientation(RtToken) {}
RtVoid RiSides(RtInt) {}
RtVoid RiIlluminate(RtLightHandle, RtBoolean) {}
RtVoid RiTextureCoordinates(RtFloat, RtFloat, RtFloat, RtFloat, RtFloat, RtFloat, RtFloat,
                            RtFloat) {}
RtVoid RiShadingRate(RtFloat) {}
RtVoid RiDetailRange(RtFloat, RtFloat, RtFloat, RtFloat) {}
RtVoid RiAttribute(RtToken, ...) {}
// Only the "user" values are kept (for the conditional requests).
RtVoid RiAttributeV(RtToken name, RtInt n, RtToken tokens[], RtPointer values[]) {
    if (name != nullptr && std::strcmp(name, "user") == 0) set_user_attributes(n, tokens, values);
}
RtVoid RiImager(RtToken, ...) {}
RtVoid RiImagerV(RtToken, RtInt, RtToken[], RtPointer[]) {}
RtVoid RiProcedural(RtPointer, RtBound, RtVoid (*)(RtPointer, RtFloat), RtVoid (*)(RtPointer)) {}

// ---- Pixel filters: present so that RiPixelFilter can be given them ----

RtFloat RiGaussianFilter(RtFloat, RtFloat, RtFloat, RtFloat) {
    return 0.0f;
}
RtFloat RiBoxFilter(RtFloat, RtFloat, RtFloat, RtFloat) {
    return 0.0f;
}
RtFloat RiTriangleFilter(RtFloat, RtFloat, RtFloat, RtFloat) {
    return 0.0f;
}
RtFloat RiCatmullRomFilter(RtFloat, RtFloat, RtFloat, RtFloat) {
    return 0.0f;
}
RtFloat RiSincFilter(RtFloat, RtFloat, RtFloat, RtFloat) {
    return 0.0f;
}
