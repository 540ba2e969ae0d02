// Line drawing of the primitives that are not grid objects: projection of
// their points, polylines and edge lists through the previewer's segment
// drawer, and their world-space polygons under the dump options.
#include "preview/wire.h"

#include <utility>

#include "driver/globals.h"
#include "math/transform.h"
#include "preview/dump.h"
#include "preview/projection.h"
#include "preview/x11_previewer.h"
#include "ri/transforms.h"

void project_points(float* points, long count) {
    if (count > 0) ScreenProjection().project_points(points, size_t(count));
}

void draw_projected_segment(float* a, float* b) {
    if (X11VectorPreviewer* preview = previewer()) preview->X11_draw_segment(a, b);
}

void draw_projected_edges(const float* points, const std::vector<uint64_t>& edges) {
    X11VectorPreviewer* preview = previewer();
    if (preview == nullptr) return;
    float* p = const_cast<float*>(points);
    for (uint64_t key : edges) {
        const uint32_t a = uint32_t(key >> 32);
        const uint32_t b = uint32_t(key & 0xffffffffu);
        preview->X11_draw_segment(p + 3 * size_t(a), p + 3 * size_t(b));
    }
}

uint64_t edge_key(uint32_t a, uint32_t b) {
    if (a > b) std::swap(a, b);
    return (uint64_t(a) << 32) | b;
}

bool dumping_surfaces() {
    return dump_diced_rib != 0;
}

void dump_object_polygon(const float* points, int count) {
    if (count < 3) return;
    if (dump_diced_rib != 1) {
        dump_polygon_fan(count, points);
        return;
    }
    std::vector<float> world(3 * static_cast<size_t>(count));
    std::vector<const float*> corners(static_cast<size_t>(count));
    for (int i = 0; i < count; i++) {
        transform_p(points + 3 * i, curxform, &world[3 * size_t(i)]);
        corners[size_t(i)] = &world[3 * size_t(i)];
    }
    print_dump_polygon(corners.data(), count);
}
