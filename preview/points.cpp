// Points: each point is drawn as a small cross centred on its projection.
// A cross of fixed raster size rather than a dot: a one-pixel dot is hard
// to see in the window, and a zero-length line strokes to nothing on a
// PostScript page, while two short strokes show in both. The "width" of the
// points is not drawn (a wireframe marks where particles are, not their
// size). Points are not a surface: drawn only, never dumped, and drawn under
// the dump options as well.
#include <cstdarg>
#include <cstring>
#include <vector>

#include "preview/wire.h"
#include "preview/world_sink.h"
#include "preview/x11_previewer.h"
#include "ri/ri.h"
#include "ri/transforms.h"
#include "support/error.h"

namespace {

// Half the length of each arm of a point's cross, in raster pixels.
constexpr float CROSS_ARM = 2.0f;

void draw_cross(X11VectorPreviewer* preview, const float* projected) {
    if (projected[2] == 0.0f) return;
    const float x = projected[0];
    const float y = projected[1];
    float left[3] = {x - CROSS_ARM, y, 1.0f};
    float right[3] = {x + CROSS_ARM, y, 1.0f};
    float top[3] = {x, y - CROSS_ARM, 1.0f};
    float bottom[3] = {x, y + CROSS_ARM, 1.0f};
    preview->X11_draw_segment(left, right);
    preview->X11_draw_segment(top, bottom);
}

}  // namespace

RtVoid RiPointsV(RtInt npoints, RtInt n, RtToken tokens[], RtPointer params[]) {
    if (motion_guard()) return;
    const float* positions = nullptr;
    for (int i = 0; i < n; i++) {
        if (tokens[i] != nullptr && std::strcmp(tokens[i], "P") == 0) {
            positions = static_cast<const float*>(params[i]);
        }
    }
    if (positions == nullptr) {
        RMError(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found");
        return;
    }
    X11VectorPreviewer* preview = previewer();
    if (preview == nullptr || npoints <= 0) return;
    keep_markers(positions, size_t(npoints));
    std::vector<float> points(positions, positions + 3 * size_t(npoints));
    project_points(points.data(), npoints);
    for (int i = 0; i < npoints; i++) draw_cross(preview, &points[3 * size_t(i)]);
}

RtVoid RiPoints(RtInt npoints, ...) {
    va_list ap;
    va_start(ap, npoints);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPointsV(npoints, n, _V_names, _V_params);
}
