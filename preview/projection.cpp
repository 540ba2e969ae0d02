// toscreen and ScreenProjection: object-space points carried to raster
// coordinates through the current transformation, the camera and the screen
// mapping of the option record, with their visibility decided on the way;
// one at a time, or four at a time with SSE2 giving the same bits, and the
// raster points the sinks take made from them.
#include "preview/projection.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "math/transform.h"
#include "ri/options.h"
#include "ri/renderer.h"
#include "ri/transforms.h"

namespace {

// Screen-plane coordinates beyond this are not drawn; it keeps raster
// coordinates far from integer overflow.
constexpr float SCREEN_BOUND = 10.0f;

bool depth_rejected(float z, const ScreenMapping& o) {
    return z < o.near_clip || z > o.far_clip || static_cast<double>(z) < DEPTH_FLOOR;
}

bool outside_screen_bound(float x, float y) {
    return x > SCREEN_BOUND || x < -SCREEN_BOUND || y > SCREEN_BOUND || y < -SCREEN_BOUND;
}

}  // namespace

ScreenMapping current_screen_mapping() {
    const GOptions* o = renderer;
    if (o == nullptr) return ScreenMapping{};
    // The screen-plane origin always lands on the raster centre, taken from
    // the raw resolution halved in integers: the screen window's offset and
    // the frame aspect ratio's reduction of the resolution do not move it.
    return {o->projection,
            o->near_clip,
            o->far_clip,
            xstep,
            ystep,
            static_cast<float>(o->xres / 2),
            static_cast<float>(o->yres / 2)};
}

ScreenProjection::ScreenProjection()
    : valid_(renderer != nullptr),
      mapping_(current_screen_mapping()),
      object_(nullptr),
      camera_(nullptr) {
    if (!valid_) return;
    object_ = point_matrix_at(curxform, sample_time, object_blend_);
    camera_ = point_matrix_at(renderer->camera, sample_time, camera_blend_);
}

ScreenProjection::ScreenProjection(const ScreenMapping& mapping, const float (*object)[4],
                                   const float (*camera)[4])
    : valid_(true), mapping_(mapping), object_(nullptr), camera_(nullptr) {
    if (object != nullptr) {
        std::memcpy(object_blend_, object, sizeof object_blend_);
        object_ = object_blend_;
    }
    if (camera != nullptr) {
        std::memcpy(camera_blend_, camera, sizeof camera_blend_);
        camera_ = camera_blend_;
    }
}

void ScreenProjection::project(float* p) const {
    if (!valid_) {
        p[2] = 0.0f;
        return;
    }
    const ScreenMapping& o = mapping_;
    float world[3], c[3];
    transform_point_by(object_, p, world);
    transform_point_by(camera_, world, c);
    float x = c[0], y = c[1], z = c[2];
    if (depth_rejected(z, o)) {
        p[2] = 0.0f;
        return;
    }
    if (o.projection == 0) {
        x /= z;
        y /= z;
    }
    if (outside_screen_bound(x, y)) {
        p[2] = 0.0f;
        return;
    }
    p[0] = ceilf(x / o.xstep) + o.half_x;
    p[1] = o.half_y - ceilf(y / o.ystep);
    p[2] = (std::isnan(p[0]) || std::isnan(p[1])) ? 0.0f : 1.0f;
}

void toscreen(float* p) {
    ScreenProjection().project(p);
}

#ifdef __SSE2__

// Four points at once. Every lane goes through the operations of project in
// the same order, in single precision, so the results are bit for bit the
// same; only ceilf is made of other instructions (see ceil_lanes).
namespace {

struct Lanes {
    __m128 x, y, z;
};

// A matrix of transform_point_by with each element it uses in all four
// lanes, made once for a run of points rather than once for every four.
struct MatrixLanes {
    bool given = false;  // no matrix: the identity
    __m128 m[4][3];
};

MatrixLanes matrix_lanes(const float (*m)[4]) {
    MatrixLanes lanes;
    if (m == nullptr) return lanes;
    lanes.given = true;
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 3; ++j) lanes.m[i][j] = _mm_set1_ps(m[i][j]);
    }
    return lanes;
}

// One output coordinate of transform_point_by: ((x m0j + y m1j) + z m2j) + m3j.
__m128 affine_coordinate(const MatrixLanes& m, int j, const Lanes& in) {
    __m128 r = _mm_add_ps(_mm_mul_ps(in.x, m.m[0][j]), _mm_mul_ps(in.y, m.m[1][j]));
    r = _mm_add_ps(r, _mm_mul_ps(in.z, m.m[2][j]));
    return _mm_add_ps(r, m.m[3][j]);
}

Lanes affine_lanes(const MatrixLanes& m, const Lanes& in) {
    if (!m.given) return in;
    return {affine_coordinate(m, 0, in), affine_coordinate(m, 1, in), affine_coordinate(m, 2, in)};
}

// ceilf of each lane. A value of magnitude 2^23 or more (or NaN, or an
// infinity) is already whole and is kept. Below that, truncation toward zero
// plus one where it fell short gives the ceiling; only the sign of a zero
// result may differ (-0.5 gives +0 where ceilf gives -0), and that sign is
// lost when the half resolution is added or subtracted.
__m128 ceil_lanes(__m128 v) {
    const __m128 magnitude = _mm_and_ps(v, _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff)));
    const __m128 fractional = _mm_cmplt_ps(magnitude, _mm_set1_ps(8388608.0f));
    const __m128 truncated = _mm_cvtepi32_ps(_mm_cvttps_epi32(v));
    const __m128 short_by_one = _mm_and_ps(_mm_cmplt_ps(truncated, v), _mm_set1_ps(1.0f));
    const __m128 ceiling = _mm_add_ps(truncated, short_by_one);
    return _mm_or_ps(_mm_and_ps(fractional, ceiling), _mm_andnot_ps(fractional, v));
}

// The coordinates of four points as lanes. Points stored one after another
// (as kept points and mesh vertices are) are read in three loads.
Lanes load_lanes(const float* const p[4]) {
    if (p[1] == p[0] + 3 && p[2] == p[0] + 6 && p[3] == p[0] + 9) {
        const __m128 a = _mm_loadu_ps(p[0]);      // x0 y0 z0 x1
        const __m128 b = _mm_loadu_ps(p[0] + 4);  // y1 z1 x2 y2
        const __m128 c = _mm_loadu_ps(p[0] + 8);  // z2 x3 y3 z3
        const __m128 x = _mm_shuffle_ps(a, _mm_shuffle_ps(b, c, _MM_SHUFFLE(1, 1, 2, 2)),
                                        _MM_SHUFFLE(2, 0, 3, 0));
        const __m128 y =
            _mm_shuffle_ps(_mm_shuffle_ps(a, b, _MM_SHUFFLE(0, 0, 1, 1)),
                           _mm_shuffle_ps(b, c, _MM_SHUFFLE(2, 2, 3, 3)), _MM_SHUFFLE(2, 0, 2, 0));
        const __m128 z =
            _mm_shuffle_ps(_mm_shuffle_ps(a, b, _MM_SHUFFLE(1, 1, 2, 2)),
                           _mm_shuffle_ps(c, c, _MM_SHUFFLE(3, 3, 0, 0)), _MM_SHUFFLE(2, 0, 2, 0));
        return {x, y, z};
    }
    return {_mm_set_ps(p[3][0], p[2][0], p[1][0], p[0][0]),
            _mm_set_ps(p[3][1], p[2][1], p[1][1], p[0][1]),
            _mm_set_ps(p[3][2], p[2][2], p[1][2], p[0][2])};
}

__m128 select_lanes(__m128 mask, __m128 when_set, __m128 otherwise) {
    return _mm_or_ps(_mm_and_ps(mask, when_set), _mm_andnot_ps(mask, otherwise));
}

// The raster points of four projected points, as raster_point makes them:
// drawn where visible with both coordinates strictly inside +-2^30, which
// also makes the truncation to int exact in range.
void raster_four(__m128 x, __m128 y, __m128 visible, RasterPoint* raster) {
    const __m128 limit = _mm_set1_ps(1 << 30), negative_limit = _mm_set1_ps(-(1 << 30));
    __m128 drawn =
        _mm_and_ps(visible, _mm_and_ps(_mm_cmplt_ps(x, limit), _mm_cmpgt_ps(x, negative_limit)));
    drawn = _mm_and_ps(drawn, _mm_and_ps(_mm_cmplt_ps(y, limit), _mm_cmpgt_ps(y, negative_limit)));
    int xs[4], ys[4];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(xs), _mm_cvttps_epi32(x));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(ys), _mm_cvttps_epi32(y));
    const int mask = _mm_movemask_ps(drawn);
    for (int k = 0; k < 4; ++k) {
        const bool point_drawn = (mask >> k) & 1;
        raster[k] = {point_drawn ? xs[k] : 0, point_drawn ? ys[k] : 0, point_drawn};
    }
}

// What projecting four points takes, each value in all four lanes.
struct ProjectionLanes {
    bool perspective;
    MatrixLanes object, camera;
    __m128 near_clip, far_clip, depth_floor, bound, negative_bound;
    __m128 xstep, ystep, half_x, half_y;
};

// The depth floor is compared in single precision: no float lies in
// [0.1, 0.1f), so z < 0.1 and z < 0.1f agree for every float z.
ProjectionLanes projection_lanes(const ScreenMapping& o, const float (*object)[4],
                                 const float (*camera)[4]) {
    return {o.projection == 0,         matrix_lanes(object),
            matrix_lanes(camera),      _mm_set1_ps(o.near_clip),
            _mm_set1_ps(o.far_clip),   _mm_set1_ps(static_cast<float>(DEPTH_FLOOR)),
            _mm_set1_ps(SCREEN_BOUND), _mm_set1_ps(-SCREEN_BOUND),
            _mm_set1_ps(o.xstep),      _mm_set1_ps(o.ystep),
            _mm_set1_ps(o.half_x),     _mm_set1_ps(o.half_y)};
}

// Four points at once: the projected points are written to out (which may
// be p) and their raster points to raster, each when given.
void project_four(const ProjectionLanes& o, const float* const p[4], float* const out[4],
                  RasterPoint* raster) {
    const Lanes in = load_lanes(p);
    const Lanes c = affine_lanes(o.camera, affine_lanes(o.object, in));
    const __m128 z = c.z;
    __m128 rejected = _mm_or_ps(_mm_cmplt_ps(z, o.near_clip), _mm_cmpgt_ps(z, o.far_clip));
    rejected = _mm_or_ps(rejected, _mm_cmplt_ps(z, o.depth_floor));
    __m128 x = c.x, y = c.y;
    if (o.perspective) {
        x = _mm_div_ps(x, z);
        y = _mm_div_ps(y, z);
    }
    rejected =
        _mm_or_ps(rejected, _mm_or_ps(_mm_cmpgt_ps(x, o.bound), _mm_cmplt_ps(x, o.negative_bound)));
    rejected =
        _mm_or_ps(rejected, _mm_or_ps(_mm_cmpgt_ps(y, o.bound), _mm_cmplt_ps(y, o.negative_bound)));
    const __m128 rx = _mm_add_ps(ceil_lanes(_mm_div_ps(x, o.xstep)), o.half_x);
    const __m128 ry = _mm_sub_ps(o.half_y, ceil_lanes(_mm_div_ps(y, o.ystep)));
    const __m128 visible = _mm_andnot_ps(_mm_or_ps(rejected, _mm_cmpunord_ps(rx, ry)),
                                         _mm_castsi128_ps(_mm_set1_epi32(-1)));
    if (out != nullptr) {
        // A rejected point keeps its x and y, as project leaves them.
        float out_x[4], out_y[4], out_visible[4];
        _mm_storeu_ps(out_x, select_lanes(rejected, in.x, rx));
        _mm_storeu_ps(out_y, select_lanes(rejected, in.y, ry));
        _mm_storeu_ps(out_visible, _mm_and_ps(visible, _mm_set1_ps(1.0f)));
        for (int k = 0; k < 4; ++k) {
            out[k][0] = out_x[k];
            out[k][1] = out_y[k];
            out[k][2] = out_visible[k];
        }
    }
    if (raster != nullptr) raster_four(rx, ry, visible, raster);
}

// The last one to three points of a run, four lanes wide all the same (the
// lanes past them repeat the last point and go to scratch), since a lattice
// of 5 x 5 points would otherwise project one point in 25 the slow way.
template <typename PointAt>
void project_tail(const ProjectionLanes& lanes, size_t count, PointAt point_at,
                  RasterPoint* raster) {
    using Point = decltype(point_at(size_t(0)));
    constexpr bool in_place = !std::is_const_v<std::remove_pointer_t<Point>>;
    float scratch[4][3];
    Point four[4];
    float* out[4];
    for (size_t t = 0; t < 4; ++t) {
        four[t] = point_at(t < count ? t : count - 1);
        if constexpr (in_place) out[t] = t < count ? four[t] : scratch[t];
    }
    RasterPoint rasters[4];
    project_four(lanes, four, in_place ? out : nullptr, raster ? rasters : nullptr);
    if (raster != nullptr) std::copy(rasters, rasters + count, raster);
}

}  // namespace

#endif

// The one loop behind project_points, project_each and rasterize_points:
// point_at(k) gives point k; writable points are projected in place, points
// given read-only are left alone, and raster points go to raster when given.
template <typename PointAt>
void ScreenProjection::project_run(size_t count, PointAt point_at, RasterPoint* raster) const {
    using Point = decltype(point_at(size_t(0)));
    constexpr bool in_place = !std::is_const_v<std::remove_pointer_t<Point>>;
    size_t k = 0;
#ifdef __SSE2__
    if (valid_ && count > 0) {
        const ProjectionLanes lanes = projection_lanes(mapping_, object_, camera_);
        for (; k + 4 <= count; k += 4) {
            const Point four[4] = {point_at(k), point_at(k + 1), point_at(k + 2), point_at(k + 3)};
            if constexpr (in_place) {
                project_four(lanes, four, four, raster ? raster + k : nullptr);
            } else {
                project_four(lanes, four, nullptr, raster + k);
            }
        }
        if (k < count) {
            project_tail(
                lanes, count - k, [&](size_t t) { return point_at(k + t); },
                raster ? raster + k : nullptr);
        }
        return;
    }
#endif
    for (; k < count; ++k) {
        float p[3];
        std::memcpy(p, point_at(k), sizeof p);
        project(p);
        if constexpr (in_place) std::memcpy(point_at(k), p, sizeof p);
        if (raster != nullptr) raster[k] = raster_point(p);
    }
}

void ScreenProjection::project_points(float* points, size_t count, RasterPoint* raster) const {
    project_run(
        count, [points](size_t k) { return points + 3 * k; }, raster);
}

void ScreenProjection::project_each(float* const* points, size_t count, RasterPoint* raster) const {
    project_run(
        count, [points](size_t k) { return points[k]; }, raster);
}

void ScreenProjection::rasterize_points(const float* points, size_t count,
                                        RasterPoint* raster) const {
    project_run(
        count, [points](size_t k) { return points + 3 * k; }, raster);
}
