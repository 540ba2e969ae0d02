// The bound of a procedural as a wire box: its eight corners projected once,
// its twelve edges drawn as segments.
#include "preview/bound_box.h"

#include "preview/projection.h"
#include "preview/world_sink.h"
#include "preview/x11_previewer.h"

void draw_bound_box(const float bound[6]) {
    X11VectorPreviewer* out = previewer();
    if (out == nullptr) return;
    // Corner c takes x from bit 0, y from bit 1 and z from bit 2.
    float corners[8][3];
    for (int c = 0; c < 8; ++c) {
        corners[c][0] = bound[c & 1];
        corners[c][1] = bound[2 + ((c >> 1) & 1)];
        corners[c][2] = bound[4 + ((c >> 2) & 1)];
    }
    // The twelve edges in the order they are drawn below.
    static const uint32_t edges[24] = {0, 1, 0, 2, 0, 4, 1, 3, 1, 5, 2, 3,
                                       2, 6, 3, 7, 4, 5, 4, 6, 5, 7, 6, 7};
    keep_edges(&corners[0][0], 8, edges, 12);
    const ScreenProjection projection;
    for (auto& corner : corners) projection.project(corner);
    // Each edge joins two corners that differ in one bit.
    for (int c = 0; c < 8; ++c) {
        for (int bit = 1; bit < 8; bit <<= 1) {
            if ((c & bit) == 0) out->X11_draw_segment(corners[c], corners[c | bit]);
        }
    }
}
