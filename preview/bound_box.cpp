// The bound of a procedural as a wire box: its eight corners projected once,
// its twelve edges drawn as segments.
#include "preview/bound_box.h"

#include "preview/projection.h"
#include "preview/x11_previewer.h"

void draw_bound_box(const float bound[6]) {
    X11VectorPreviewer* out = previewer();
    if (out == nullptr) return;
    // Corner c takes x from bit 0, y from bit 1 and z from bit 2.
    float corners[8][3];
    const ScreenProjection projection;
    for (int c = 0; c < 8; ++c) {
        corners[c][0] = bound[c & 1];
        corners[c][1] = bound[2 + ((c >> 1) & 1)];
        corners[c][2] = bound[4 + ((c >> 2) & 1)];
        projection.project(corners[c]);
    }
    // Each edge joins two corners that differ in one bit.
    for (int c = 0; c < 8; ++c) {
        for (int bit = 1; bit < 8; bit <<= 1) {
            if ((c & bit) == 0) out->X11_draw_segment(corners[c], corners[c | bit]);
        }
    }
}
