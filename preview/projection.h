// Projection of object-space points to raster coordinates through the
// current transformation and the camera of the option record.
#ifndef TRACERY_PREVIEW_PROJECTION_H
#define TRACERY_PREVIEW_PROJECTION_H

#include <algorithm>
#include <cstddef>
#include <limits>

// A projected point as the sinks take it: raster coordinates truncated
// toward zero, and whether segments to it are drawn at all.
struct RasterPoint {
    int x, y;
    bool drawn;
};

// The box of the drawn points among some raster points: every segment
// between two of them lies in it.
struct RasterBox {
    static constexpr int FAR_END = std::numeric_limits<int>::max();
    int x0 = FAR_END, y0 = FAR_END, x1 = -FAR_END, y1 = -FAR_END;
    void add(const RasterPoint& p) {
        if (!p.drawn) return;
        x0 = std::min(x0, p.x);
        y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x);
        y1 = std::max(y1, p.y);
    }
    bool empty() const { return x0 > x1; }
    // The box of the drawn points among count raster points.
    static RasterBox of(const RasterPoint* points, size_t count) {
        RasterBox box;
        for (size_t k = 0; k < count; ++k) box.add(points[k]);
        return box;
    }
};

// The raster point of a projected point. It is not drawn when the point is
// not visible or a coordinate lies beyond +-2^30 (a degenerate screen
// mapping), since sinks take ints with room to spare.
inline RasterPoint raster_point(const float* p) {
    constexpr float RASTER_LIMIT = 1 << 30;
    if (p[2] == 0.0f || !(p[0] > -RASTER_LIMIT && p[0] < RASTER_LIMIT) ||
        !(p[1] > -RASTER_LIMIT && p[1] < RASTER_LIMIT)) {
        return {0, 0, false};
    }
    return {static_cast<int>(p[0]), static_cast<int>(p[1]), true};
}

// Nothing nearer to the eye than this is drawn, whatever the clipping
// distances say and under either projection.
constexpr double DEPTH_FLOOR = 0.1;

// What the projection reads from the option record of a world block: the
// projection (0 perspective, anything else orthographic), the clipping
// distances, the screen-plane size of a pixel and the raster centre.
struct ScreenMapping {
    int projection;
    float near_clip, far_clip;
    float xstep, ystep;
    float half_x, half_y;
};

// The mapping of the option record in force (all zero without a renderer).
ScreenMapping current_screen_mapping();

// Overwrites p (x, y, z in object space) with (raster x, raster y, visible),
// visible being exactly 1.0 when the point may be drawn and 0.0 when not.
void toscreen(float* p);

// The projection in force when it is made: the matrices of the current
// transformation and of the camera at the sample time, and the screen
// mapping of the option record. A drawer that projects many points under
// one transformation makes one and projects each point through it, without
// picking the matrices again for every point; the points come out exactly as
// toscreen makes them (toscreen is one of these used once).
class ScreenProjection {
  public:
    ScreenProjection();
    // A projection through given matrices (null: the identity) and mapping:
    // the interactive window projects kept world-space points so, with a
    // null object matrix. The matrices are copied.
    ScreenProjection(const ScreenMapping& mapping, const float (*object)[4],
                     const float (*camera)[4]);
    // As toscreen.
    void project(float* p) const;
    // Projects count points stored one after another (x, y, z each), each
    // exactly as project does, four at a time where the processor allows;
    // with raster given, raster[k] receives the raster point of point k.
    void project_points(float* points, size_t count, RasterPoint* raster = nullptr) const;
    // The same for count points found through pointers.
    void project_each(float* const* points, size_t count, RasterPoint* raster = nullptr) const;
    // The raster points of count points stored one after another, the
    // points themselves left as they are.
    void rasterize_points(const float* points, size_t count, RasterPoint* raster) const;

    // What the projection carries points through: false without a renderer;
    // the object and camera matrices (null: the identity) and the mapping.
    bool valid() const { return valid_; }
    const float (*object_matrix() const)[4] { return object_; }
    const float (*camera_matrix() const)[4] { return camera_; }
    const ScreenMapping& mapping() const { return mapping_; }

  private:
    template <typename PointAt>
    void project_run(size_t count, PointAt point_at, RasterPoint* raster) const;

    bool valid_;  // false without a renderer: every point is rejected
    ScreenMapping mapping_;
    const float (*object_)[4];
    const float (*camera_)[4];
    float object_blend_[4][4];
    float camera_blend_[4][4];
};

#endif  // TRACERY_PREVIEW_PROJECTION_H
