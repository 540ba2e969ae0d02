// The block structure of the interface: RiBegin/RiEnd create and destroy the
// one renderer, and the frame and world procedures keep the nesting bits of
// block_level and pass the frame and world events on to the renderer.
#include <vector>

#include "preview/x11_previewer.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "ri/transforms.h"
#include "ri/user_values.h"
#include "support/error.h"

namespace {

// A second RiBegin replaces the renderer without destroying the first (its
// destructor would end the picture and wait). The replaced renderers are kept
// here, reachable, for the rest of the run (the list itself is never
// destroyed, so they stay reachable through exit).
std::vector<Renderer*>& replaced_renderers() {
    static auto* list = new std::vector<Renderer*>();
    return *list;
}

void nesting_error(const char* message) {
    RMError(RIE_NESTING, RIE_SEVERE, message);
}

// Depths of the attribute and transformation stacks just inside the frame
// under way (its own level opened); -1 outside frames.
int frame_attribute_depth = -1;
int frame_transform_depth = -1;

// The end of a frame releases everything allocated inside it, so nothing
// opened inside it may stay open past it: attribute and transformation
// levels left open are closed first (with one report), or their states and
// records, and what they hold, would be used after their release. The levels
// around the frame are out of reach of the frame's own RiAttributeEnd calls
// (see set_attribute_floor) for the same reason.
void report_levels_left_open(bool* reported) {
    if (*reported) return;
    *reported = true;
    RMError(RIE_NESTING, RIE_ERROR, "FrameEnd closes the blocks left open in the frame");
}

void close_levels_left_open(bool* reported) {
    if (frame_attribute_depth < 0) return;
    if (attribute_stack_depth() <= frame_attribute_depth &&
        transform_stack_depth() <= frame_transform_depth) {
        return;
    }
    report_levels_left_open(reported);
    while (attribute_stack_depth() > frame_attribute_depth) RiAttributeEnd();
    while (transform_stack_depth() > frame_transform_depth) RiTransformEnd();
}

// After the frame's own level is closed, no open level may still stand on a
// state released with the frame. After nesting errors that were let go on (a
// second FrameBegin, a FrameEnd inside the world, an unmatched FrameEnd) the
// depths recorded at the frame's beginning do not say where the frame's
// levels are; the states' lifetime tags do.
void close_levels_released_with_frame(bool* reported) {
    while (attribute_stack_depth() > 0 && current_state_tagged(BLOCK_FRAME)) {
        report_levels_left_open(reported);
        RiAttributeEnd();
    }
}

}  // namespace

RtVoid RiBegin(RtToken) {
    if (block_level != 0) nesting_error("RiBegin must be called at the NULL level");
    block_level |= BLOCK_GLOBAL;
    ++interface_runs;
    frame_attribute_depth = frame_transform_depth = -1;
    if (renderer != nullptr) replaced_renderers().push_back(renderer);
    // Made after the global bit is set, so the root graphics state carries
    // the global lifetime tag.
    renderer = new X11VectorPreviewer();
    clear_user_values();
    RiBasis(RiBezierBasis, RI_BEZIERSTEP, RiBezierBasis, RI_BEZIERSTEP);
}

// The renderer is destroyed here and renderer is set to null, so that no
// procedure called after RiEnd can reach a destroyed object.
RtVoid RiEnd() {
    if (block_level != BLOCK_GLOBAL) nesting_error("RiEnd called at inappropriate level");
    block_level = 0;
    Renderer* ended = renderer;
    delete ended;
    renderer = nullptr;
}

RtVoid RiFrameBegin(RtInt frame) {
    if (block_level != BLOCK_GLOBAL) {
        nesting_error("RiFrameBegin must be called at the GLOBAL level");
    }
    const bool in_frame = (block_level & BLOCK_FRAME) != 0;
    block_level |= BLOCK_FRAME;
    if (renderer != nullptr) renderer->framebegin(frame);
    RiAttributeBegin();
    if (in_frame) return;  // a second FrameBegin keeps the first one's floor
    frame_attribute_depth = attribute_stack_depth();
    frame_transform_depth = transform_stack_depth();
    set_attribute_floor(frame_attribute_depth);
}

RtVoid RiFrameEnd() {
    if ((block_level & BLOCK_FRAME) == 0) {
        nesting_error("RiFrameEnd called without corresponding RiFrameBegin");
    }
    if (block_level >= BLOCK_WORLD) nesting_error("RiFrameEnd called inside world level");
    // A toggle: after an unmatched RiFrameEnd that was let go on, the frame
    // bit ends up set.
    block_level ^= BLOCK_FRAME;
    bool reported = false;
    close_levels_left_open(&reported);
    set_attribute_floor(0);
    frame_attribute_depth = frame_transform_depth = -1;
    RiAttributeEnd();
    close_levels_released_with_frame(&reported);
    if (renderer != nullptr) renderer->frameend();
}

RtVoid RiWorldBegin() {
    if (block_level == 0 || block_level >= BLOCK_WORLD) {
        nesting_error("RiWorldBegin called at inappropriate level");
    }
    block_level |= BLOCK_WORLD;
    // The null hider draws nothing: no camera, no attribute level, no reset
    // of the transformation. RiWorldEnd still closes an attribute level.
    if (renderer == nullptr || renderer->hider == HIDER_NULL) return;
    renderer->worldbegin();
    RiAttributeBegin();
    // The transformation current until now survives only as the camera.
    curxform = nullptr;
    RiIdentity();
}

RtVoid RiWorldEnd() {
    if ((block_level & BLOCK_WORLD) == 0 || block_level >= BLOCK_MOTION) {
        nesting_error("RiWorldEnd called at inappropriate level");
    }
    block_level ^= BLOCK_WORLD;
    // Under the null hider the world opened no level, and the one closed here
    // is the frame's own: that is allowed past the frame's floor.
    set_attribute_floor(0);
    RiAttributeEnd();
    set_attribute_floor(frame_attribute_depth < 0 ? 0 : frame_attribute_depth);
    if (renderer != nullptr) renderer->worldend();
}
