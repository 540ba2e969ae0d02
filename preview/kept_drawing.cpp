// The segments of a kept frame through a camera: each primitive's points
// projected together (four at a time, as the drawing projects them), its
// segments made in the drawing's order, the free camera's cut at the eye
// plane, and the nearest segment to a pixel.
#include "preview/kept_drawing.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "math/clip_parameter.h"

namespace {

// Half the length of each arm of a point's cross, as the drawing makes it.
constexpr int CROSS_ARM = 2;
// Cut segments are held to this square of raster pixels: far beyond any
// window, well inside an int.
constexpr double RASTER_GUARD = double(1 << 24);

// Segments are handed on in batches of this many.
constexpr size_t SEGMENT_BATCH = 32768;

// Makes the segments of one primitive after another and hands them to emit
// in batches (a primitive may give millions). The buffers outlive each call
// (one redraw after another), so that a redraw allocates nothing. The store
// has checked every index against its primitive's points.
class Segmenter {
  public:
    using Emit = std::function<void(RasterSegment*, size_t)>;
    Segmenter(const KeptProjection& projection, Emit emit)
        : projection_(projection.mapping, nullptr,
                      projection.camera_identity ? nullptr : projection.camera),
          kept_(projection),
          emit_(std::move(emit)) {
        static std::vector<RasterSegment> batch(SEGMENT_BATCH);
        batch_ = batch.data();
        out_ = batch_;
        // A marker gives two segments at once.
        full_ = batch_ + SEGMENT_BATCH - 1;
    }

    // Emits the segments of p, in the drawing's order.
    void segments(const KeptFrame& frame, const KeptPrimitive& p) {
        static std::vector<RasterPoint> raster_space;
        if (raster_space.size() < p.point_count) raster_space.resize(p.point_count);
        raster_ = raster_space.data();
        points_ = frame.points.data() + 3 * size_t(p.first_point);
        projection_.rasterize_points(points_, p.point_count, raster_);
        const uint32_t* index = frame.indices.data() + p.first_index;
        switch (p.kind) {
            case KeptKind::LATTICE:
                lattice(p.nu, p.nv);
                break;
            case KeptKind::CHAINS:
                chains(index, index + p.index_count);
                break;
            case KeptKind::EDGES:
                for (uint32_t k = 0; k + 1 < p.index_count; k += 2) segment(index[k], index[k + 1]);
                break;
            case KeptKind::MARKERS:
                markers(p.point_count);
                break;
        }
        flush();
    }

  private:
    void flush() {
        if (out_ > batch_) emit_(batch_, size_t(out_ - batch_));
        out_ = batch_;
    }

    void add(const RasterSegment& s) {
        *out_++ = s;
        if (out_ >= full_) flush();
    }

    void segment(uint32_t a, uint32_t b) {
        const RasterPoint& ra = raster_[a];
        const RasterPoint& rb = raster_[b];
        if (ra.drawn & rb.drawn) {
            add({ra.x, ra.y, rb.x, rb.y});
        } else if (kept_.clip) {
            cut(a, b);
        }
    }

    // An end that is drawn lies between the clipping planes, so the cut
    // leaves it where it was: it keeps its raster point.
    void cut(uint32_t a, uint32_t b) {
        RasterSegment s;
        if (!clip_kept_segment(points_ + 3 * size_t(a), points_ + 3 * size_t(b), kept_, &s)) return;
        const RasterPoint& ra = raster_[a];
        const RasterPoint& rb = raster_[b];
        if (ra.drawn) {
            s.x0 = ra.x;
            s.y0 = ra.y;
        }
        if (rb.drawn) {
            s.x1 = rb.x;
            s.y1 = rb.y;
        }
        add(s);
    }

    void lattice(int nu, int nv) {
        const uint32_t row = uint32_t(nu) + 1;
        for (uint32_t j = 0; j < uint32_t(nv); ++j) {
            const uint32_t here = j * row, below = here + row;
            for (uint32_t i = 0; i < uint32_t(nu); ++i) {
                segment(here + i, here + i + 1);
                segment(here + i, below + i);
            }
            segment(here + uint32_t(nu), below + uint32_t(nu));
        }
        const uint32_t last = uint32_t(nv) * row;
        for (uint32_t i = 0; i < uint32_t(nu); ++i) segment(last + i, last + i + 1);
    }

    void chains(const uint32_t* index, const uint32_t* end) {
        while (index < end) {
            const uint32_t n = *index & ~CHAIN_CLOSED;
            const bool closed = (*index & CHAIN_CLOSED) != 0;
            ++index;
            for (uint32_t k = 1; k < n; ++k) segment(index[k - 1], index[k]);
            if (closed && n > 0) segment(index[n - 1], index[0]);
            index += n;
        }
    }

    void markers(size_t count) {
        for (size_t k = 0; k < count; ++k) {
            const RasterPoint& r = raster_[k];
            if (!r.drawn) continue;
            *out_++ = {r.x - CROSS_ARM, r.y, r.x + CROSS_ARM, r.y};
            add({r.x, r.y - CROSS_ARM, r.x, r.y + CROSS_ARM});
        }
    }

    const ScreenProjection projection_;
    const KeptProjection& kept_;
    const Emit emit_;
    const float* points_ = nullptr;
    RasterPoint* raster_ = nullptr;
    RasterSegment* batch_ = nullptr;
    RasterSegment* out_ = nullptr;
    RasterSegment* full_ = nullptr;
};

void to_camera(const float* w, const KeptProjection& projection, double c[3]) {
    for (int j = 0; j < 3; ++j) {
        if (projection.camera_identity) {
            c[j] = w[j];
            continue;
        }
        const float(*m)[4] = projection.camera;
        c[j] = double(w[0]) * m[0][j] + double(w[1]) * m[1][j] + double(w[2]) * m[2][j] + m[3][j];
    }
}

// The raster point of a camera-space point in front of the eye.
void to_raster(const double c[3], const ScreenMapping& m, double* x, double* y) {
    double sx = c[0], sy = c[1];
    if (m.projection == 0) {
        sx /= c[2];
        sy /= c[2];
    }
    *x = std::ceil(sx / m.xstep) + m.half_x;
    *y = m.half_y - std::ceil(sy / m.ystep);
}

double squared_distance(double px, double py, const RasterSegment& s) {
    const double dx = double(s.x1) - s.x0, dy = double(s.y1) - s.y0;
    const double length2 = dx * dx + dy * dy;
    double t = length2 > 0.0 ? ((px - s.x0) * dx + (py - s.y0) * dy) / length2 : 0.0;
    t = std::clamp(t, 0.0, 1.0);
    const double ex = s.x0 + t * dx - px, ey = s.y0 + t * dy - py;
    return ex * ex + ey * ey;
}

}  // namespace

KeptProjection scene_projection(const KeptView& view) {
    KeptProjection p{};
    std::memcpy(p.camera, view.camera, sizeof p.camera);
    p.camera_identity = view.camera_identity;
    p.mapping = view.mapping;
    p.clip = false;
    return p;
}

bool clip_kept_segment(const float* a, const float* b, const KeptProjection& projection,
                       RasterSegment* out) {
    const ScreenMapping& m = projection.mapping;
    double ca[3], cb[3];
    to_camera(a, projection, ca);
    to_camera(b, projection, cb);
    for (int j = 0; j < 3; ++j) {
        if (!std::isfinite(ca[j]) || !std::isfinite(cb[j])) return false;
    }
    // In camera space: near <= z <= far.
    const double near = std::max(double(m.near_clip), DEPTH_FLOOR);
    const double dz = cb[2] - ca[2];
    double t0 = 0.0, t1 = 1.0;
    if (!clip_parameter(-dz, ca[2] - near, &t0, &t1) ||
        !clip_parameter(dz, double(m.far_clip) - ca[2], &t0, &t1)) {
        return false;
    }
    double from[3], to[3];
    for (int j = 0; j < 3; ++j) {
        from[j] = ca[j] + t0 * (cb[j] - ca[j]);
        to[j] = ca[j] + t1 * (cb[j] - ca[j]);
    }
    double x0, y0, x1, y1;
    to_raster(from, m, &x0, &y0);
    to_raster(to, m, &x1, &y1);
    if (!std::isfinite(x0) || !std::isfinite(y0) || !std::isfinite(x1) || !std::isfinite(y1)) {
        return false;
    }
    // On the screen: the guard square.
    const double dx = x1 - x0, dy = y1 - y0, g = RASTER_GUARD;
    double s0 = 0.0, s1 = 1.0;
    if (!clip_parameter(-dx, x0 + g, &s0, &s1) || !clip_parameter(dx, g - x0, &s0, &s1) ||
        !clip_parameter(-dy, y0 + g, &s0, &s1) || !clip_parameter(dy, g - y0, &s0, &s1)) {
        return false;
    }
    *out = {int(x0 + s0 * dx), int(y0 + s0 * dy), int(x0 + s1 * dx), int(y0 + s1 * dy)};
    return true;
}

void draw_kept_frame(const KeptFrame& frame, const KeptProjection& projection, LineSink& sink,
                     uint32_t only, const float* only_rgb) {
    Segmenter segmenter(projection, [&sink](RasterSegment* s, size_t count) {
        if (count > 0) sink.segments(s, count);
    });
    uint32_t colour = NO_ORIGIN;
    if (only != NO_ORIGIN && only_rgb != nullptr) sink.color(only_rgb);
    for (const KeptPrimitive& p : frame.primitives) {
        if (only != NO_ORIGIN && p.origin != only) continue;
        if (only == NO_ORIGIN && p.colour != colour && p.colour < frame.colours.size()) {
            colour = p.colour;
            sink.color(frame.colours[colour].data());
        }
        segmenter.segments(frame, p);
    }
}

uint32_t pick_kept_origin(const KeptFrame& frame, const KeptProjection& projection, int x, int y,
                          double radius) {
    double best = radius * radius;
    uint32_t found = NO_ORIGIN, origin = NO_ORIGIN;
    Segmenter segmenter(projection, [&](RasterSegment* s, size_t count) {
        for (size_t k = 0; k < count; ++k) {
            const double d = squared_distance(x, y, s[k]);
            if (d <= best) {
                best = d;
                found = origin;
            }
        }
    });
    for (const KeptPrimitive& p : frame.primitives) {
        origin = p.origin;
        segmenter.segments(frame, p);
    }
    return found;
}
