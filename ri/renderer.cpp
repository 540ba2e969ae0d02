// The renderer base classes: Renderer (the option record plus the current
// graphics state, with the frame and world events every renderer sees) and
// the pass-through PreviewRenderer; and the reset of the whole interface
// state used by tests and the fuzz driver.
#include "ri/renderer.h"

#include "preview/blobby.h"
#include "preview/teapot.h"
#include "preview/x11_previewer.h"
#include "ri/attributes.h"
#include "ri/transforms.h"
#include "support/declarations.h"
#include "support/memory.h"

// The option record is value-initialised first: default_values keeps the
// link field, which must not be read before it holds a value.
Renderer::Renderer() : GOptions(), gstate(nullptr), reserved{0, 0, 0, 0} {
    default_values();
    gstate = new GState(nullptr);
    DeclareStandardIdentifiers();
}

// Frees nothing: the graphics state pool and the option stack stay as they are.
Renderer::~Renderer() = default;

void Renderer::Render() {}

void Renderer::worldbegin() {
    GOptions::worldbegin();
}

void Renderer::worldend() {
    Render();
}

void Renderer::framebegin(long frame) {
    frame_number = frame;
    push(&goption_stack);
}

void Renderer::frameend() {
    // An unmatched RiFrameEnd (already reported) finds no saved record.
    if (goption_stack != nullptr) pop(&goption_stack);
    free_myallocs(2);
}

void Renderer::set_color(const float*) {}

GState* Renderer::ready_gstate() {
    if (gstate == nullptr || (gstate->flags & GSTATE_SHARED) != 0) {
        // When the pool is exhausted (reported there) the shared state is
        // written rather than none at all.
        GState* copy = new GState(gstate);
        if (copy != nullptr) gstate = copy;
    }
    if (gstate != nullptr) gstate->flags &= ~(GSTATE_SHARED | GSTATE_READY_MASK);
    return gstate;
}

PreviewRenderer::~PreviewRenderer() = default;

void PreviewRenderer::Render() {
    Renderer::Render();
}

void PreviewRenderer::worldbegin() {
    Renderer::worldbegin();
}

void PreviewRenderer::worldend() {
    Renderer::worldend();
}

void PreviewRenderer::framebegin(long frame) {
    Renderer::framebegin(frame);
}

void PreviewRenderer::frameend() {
    Renderer::frameend();
}

void reset_interface_state() {
    delete renderer;
    renderer = nullptr;
    block_level = 0;
    clear_attribute_stack();
    clear_option_stack();
    reset_transform_state();
    GState::release_memory(0);
    for (long& stat : GState::memstats) stat = 0;
    // Every tag first, so that parameter value blocks (the kept trim loops)
    // are freed with their slots; then the chunks themselves.
    free_myallocs(7);
    free_myallocs(0);
    object_count = 0;
    warned_instance = 0;
    forget_reported_geometry();
    forget_reported_blobby_codes();
    detail_level = 1;
    safetyfile = 0;
}
