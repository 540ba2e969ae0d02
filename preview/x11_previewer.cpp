// The wireframe renderer X11VectorPreviewer: the detail level of the
// tessellators and the frame-end release of the frame's allocations. The X11
// window (opened at world begin, shown at world end), the drawing colour, the
// frame pacing and the final wait in the destructor arrive with the window
// work; until then no display is ever opened.
#include "preview/x11_previewer.h"

#include "ri/attributes.h"
#include "support/memory.h"

int detail_level = 1;

namespace {

constexpr int MIN_DETAIL = 1;
constexpr int MAX_DETAIL = 32;

// trunc(4 * relative detail) held to 1..32 (NaN gives 1).
int detail_for(float relative_detail) {
    double d = 4.0 * static_cast<double>(relative_detail);
    if (!(d >= MIN_DETAIL)) return MIN_DETAIL;
    if (d > MAX_DETAIL) return MAX_DETAIL;
    return static_cast<int>(d);
}

}  // namespace

X11VectorPreviewer::X11VectorPreviewer() : display(nullptr), x_display_name(nullptr) {}

// No display is opened yet, so there is nothing to close or wait for.
X11VectorPreviewer::~X11VectorPreviewer() = default;

void X11VectorPreviewer::worldbegin() {
    PreviewRenderer::worldbegin();
    detail_level = detail_for(relative_detail);
}

void X11VectorPreviewer::worldend() {
    PreviewRenderer::worldend();
}

void X11VectorPreviewer::framebegin(long frame) {
    PreviewRenderer::framebegin(frame);
}

void X11VectorPreviewer::frameend() {
    PreviewRenderer::frameend();
    free_myallocs(2);
    GState::release_memory(2);
}

// Without an open display there is no drawing context to change.
void X11VectorPreviewer::set_color(const float*) {}
