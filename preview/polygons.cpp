// Polygon requests: RiPolygon, RiGeneralPolygon, RiPointsPolygons and
// RiPointsGeneralPolygons in their variadic and array forms, and the two
// drawers they share: draw_polygon (an outline, or a triangle fan under
// either dump mode) and draw_points_polygons (outlines through indices).
// The array forms do the work; the variadic forms take their lists apart.
#include "preview/polygons.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "driver/globals.h"
#include "preview/control_hull.h"
#include "preview/dump.h"
#include "preview/projection.h"
#include "preview/world_sink.h"
#include "preview/x11_previewer.h"
#include "ri/transforms.h"
#include "support/error.h"
#include "support/memory.h"

namespace {

// The positions of a parameter list: the value of the last "P" given, or
// null.
const float* find_positions(RtInt n, RtToken tokens[], RtPointer params[]) {
    const float* P = nullptr;
    for (RtInt k = 0; k < n; ++k) {
        if (tokens[k] != nullptr && strcmp(tokens[k], RI_P) == 0) {
            P = static_cast<const float*>(params[k]);
        }
    }
    return P;
}

void report_missing_positions() {
    RMError(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found");
}

// Room for count values of a trivial type, kept from call to call: it only
// grows, and is neither filled with zeros nor copied when it does, since the
// caller writes every value it reads (a mesh of millions of vertices would
// otherwise be cleared once and copied on the way). A room that must grow
// takes an eighth more than asked: meshes of a scene often grow a little
// one after the other, and each new room's pages are faulted in afresh
// (milliseconds for a mesh of a few hundred thousand vertices). When memory
// runs out the room is null, none is kept, and the next call tries afresh.
template <typename T>
class ScratchRoom {
    static_assert(std::is_trivial<T>::value, "the room's values are never constructed");

  public:
    T* room(size_t count) {
        count = std::max<size_t>(count, 1);  // no room is null but for want of memory
        if (count <= capacity_) return values_.get();
        values_.reset();
        capacity_ = 0;
        if (count > std::numeric_limits<size_t>::max() / sizeof(T) / 2) return nullptr;
        const size_t wanted = count + count / 8;
        values_.reset(static_cast<T*>(alloc_scratch(wanted * sizeof(T))));
        if (values_ != nullptr) capacity_ = wanted;
        return values_.get();
    }

  private:
    struct Free {
        void operator()(T* values) const { std::free(values); }
    };
    std::unique_ptr<T[], Free> values_;
    size_t capacity_ = 0;
};

const RasterPoint* report_no_room(size_t count) {
    QuillError(RIE_NOMEM, RIE_ERROR, "Out of memory projecting %zu points", count);
    return nullptr;
}

// The raster points of vertices 0..count-1 of P, or of the vertices
// P[verts[k]] for k in 0..count-1 when verts is given; null, reported, when
// memory runs out. The caller's positions stay as given: gathered vertices
// are copied aside.
const RasterPoint* project_vertices(const float* P, size_t count, const RtInt* verts = nullptr) {
    static ScratchRoom<float> gathered;
    static ScratchRoom<RasterPoint> raster;
    if (verts != nullptr) {
        float* points = gathered.room(3 * count);
        if (points == nullptr) return report_no_room(count);
        for (size_t k = 0; k < count; ++k)
            memcpy(points + 3 * k, P + 3 * size_t(verts[k]), 3 * sizeof(float));
        P = points;
    }
    RasterPoint* out = raster.room(count);
    if (out == nullptr) return report_no_room(count);
    ScreenProjection().rasterize_points(P, count, out);
    return out;
}

// Draws the closed outline of n projected vertices, vertex k being
// vertices[index(k)]; with n = 1 the closing segment is a single point.
// The segments are queued: the caller sends them.
template <typename VertexIndex>
void draw_outline(X11VectorPreviewer* out, int n, const RasterPoint* vertices, VertexIndex index) {
    if (n < 1) return;
    const RasterPoint& first = vertices[index(0)];
    const RasterPoint* previous = &first;
    for (int k = 1; k < n; ++k) {
        const RasterPoint* current = &vertices[index(k)];
        out->queue_segment(*previous, *current);
        previous = current;
    }
    out->queue_segment(*previous, first);
}

// Whether the n indices from verts all name a vertex (none is negative).
bool indices_valid(int n, const RtInt verts[]) {
    for (int k = 0; k < n; ++k) {
        if (verts[k] < 0) return false;
    }
    return true;
}

// The loops of an indexed list: how many come before the first negative
// vertex count, how many indices they hold, and the highest index of the
// loops drawn (those without a negative index), so that no vertex is read
// that drawing them one by one would not read.
struct IndexedLoops {
    int loops = 0;
    size_t indices = 0;
    RtInt highest = -1;
    bool all_drawn = true;  // no loop has a negative index
};

// The common case, measured in two passes the compiler makes vector code
// of: no count and no index is negative, so every loop is drawn. False,
// with m untouched, otherwise.
bool measure_valid_loops(int nloops, const RtInt nverts[], const RtInt verts[], IndexedLoops* m) {
    long long indices = 0;
    RtInt least_count = 0;
    for (int l = 0; l < nloops; ++l) {
        indices += nverts[l];
        least_count = std::min(least_count, nverts[l]);
    }
    if (least_count < 0) return false;
    RtInt lowest = 0, highest = -1;
    for (long long k = 0; k < indices; ++k) {
        lowest = std::min(lowest, verts[k]);
        highest = std::max(highest, verts[k]);
    }
    if (lowest < 0) return false;
    *m = {nloops, size_t(indices), highest, true};
    return true;
}

IndexedLoops measure_loops(int nloops, const RtInt nverts[], const RtInt verts[]) {
    IndexedLoops m;
    if (measure_valid_loops(nloops, nverts, verts, &m)) return m;
    for (; m.loops < nloops && nverts[m.loops] >= 0; ++m.loops) {
        const int n = nverts[m.loops];
        if (indices_valid(n, verts)) {
            for (int k = 0; k < n; ++k) m.highest = std::max(m.highest, verts[k]);
        } else {
            m.all_drawn = false;
        }
        verts += n;
        m.indices += size_t(n);
    }
    return m;
}

// Loops of shared vertices are drawn in runs of this many. Where the sinks
// may leave out segments known drawn (the window), a run whose vertices'
// box is known drawn, because it lies off the picture or on pixels already
// drawn in the colour, is not drawn at all: a mesh reaching far past the
// view (a ground plane, a landscape) would otherwise have most of its
// faces walked, queued and clipped away one segment at a time. In a run
// not known drawn, each loop is asked about in turn.
constexpr int LOOPS_A_RUN = 64;

// The raster box of the vertices of the count loops from verts (loop l has
// nverts[l] indices) that are drawn: every segment the loops draw lies in it.
RasterBox box_of_loops(int count, const RtInt nverts[], const RtInt verts[],
                       const RasterPoint* shared, bool all_drawn) {
    RasterBox box;
    for (int l = 0; l < count; ++l) {
        const int n = nverts[l];
        if (all_drawn || indices_valid(n, verts)) {
            for (int k = 0; k < n; ++k) box.add(shared[verts[k]]);
        }
        verts += n;
    }
    return box;
}

// Whether the raster box of the object-space box of the count vertices of
// P is known drawn: a mesh wholly off the picture is then not projected.
// A vertex that is not a number is never drawn, so it is left out of the
// box (every comparison with it is false).
bool object_box_known_drawn(X11VectorPreviewer* out, const float* P, size_t count) {
    float low[3] = {HUGE_VALF, HUGE_VALF, HUGE_VALF},
          high[3] = {-HUGE_VALF, -HUGE_VALF, -HUGE_VALF};
    for (size_t k = 0; k < count; ++k) {
        for (int c = 0; c < 3; ++c) {
            const float v = P[3 * k + size_t(c)];
            low[c] = v < low[c] ? v : low[c];
            high[c] = v > high[c] ? v : high[c];
        }
    }
    RasterBox box;
    return low[0] <= high[0] && object_box_raster_box(low, high, &box) && out->box_drawn(box);
}

// Draws the closed outline through P[verts[0]], ..., P[verts[n - 1]], from
// the shared raster points when given, else projecting its own; false when
// memory ran out for them.
bool draw_loop(X11VectorPreviewer* out, int n, const RtInt verts[], const RasterPoint* shared,
               const float* P) {
    if (shared != nullptr) {
        draw_outline(out, n, shared, [verts](int k) { return verts[k]; });
        return true;
    }
    const RasterPoint* own = project_vertices(P, size_t(n), verts);
    if (own == nullptr) return false;
    draw_outline(out, n, own, [](int k) { return k; });
    return true;
}

// What drawing the loops of one list shares: the list, the raster points of
// its vertices, and what is known of them.
struct LoopDrawing {
    X11VectorPreviewer* out;
    const RtInt* nverts;
    const float* P;
    const RasterPoint* shared;
    bool all_drawn;        // no loop has a negative index
    bool runs_asked;       // runs and loops known drawn may be left out
    bool all_known_drawn;  // the whole list is
    KeptLoops* kept;       // null when the loops are kept apart
};

// Draws (and keeps) loops first..end - 1, whose indices start at verts, run
// by run; false when memory ran out for their raster points.
bool draw_loop_runs(const LoopDrawing& d, int first, int end, const RtInt* verts) {
    for (int count = 0; first < end; first += count) {
        count = std::min(LOOPS_A_RUN, end - first);
        const bool left_out =
            d.all_known_drawn ||
            (d.runs_asked &&
             d.out->box_drawn(box_of_loops(count, d.nverts + first, verts, d.shared, d.all_drawn)));
        for (int l = first; l < first + count; ++l) {
            const int n = d.nverts[l];
            if (d.all_drawn || indices_valid(n, verts)) {
                if (d.kept != nullptr) d.kept->loop(verts, n);
                // A run not known drawn as a whole asks about each loop:
                // where a dense mesh is drawn over itself, most are.
                const bool loop_known_drawn =
                    left_out || (d.runs_asked && d.out->box_drawn(box_of_loops(
                                                     1, d.nverts + l, verts, d.shared, true)));
                if (!loop_known_drawn && !draw_loop(d.out, n, verts, d.shared, d.P)) return false;
            }
            verts += n;
        }
    }
    return true;
}

// A mesh of many blocks of loops, drawn where the order of its segments in
// one colour changes no pixel (the window), is drawn a block at a time in
// the order of the blocks' numbers with their bits reversed: 0, half, a
// quarter, three quarters and so on. The first blocks drawn are spread over
// the whole mesh, so that where a dense mesh is drawn over itself the later
// ones find most of their runs known drawn, where in the order given each
// run reaches into pixels only the runs after it draw. Within a block the
// loops go in order, so that their vertices are read in order.
constexpr int LOOPS_A_BLOCK = 16 * LOOPS_A_RUN;

int reversed_bits(int value, int bits) {
    int reversed = 0;
    for (int k = 0; k < bits; ++k, value >>= 1) reversed = reversed << 1 | (value & 1);
    return reversed;
}

// Draws loops 0..loops - 1 so; false when memory ran out (for the blocks'
// places too).
bool draw_blocks_spread(const LoopDrawing& d, int loops, const RtInt* verts) {
    const int blocks = loops / LOOPS_A_BLOCK + (loops % LOOPS_A_BLOCK != 0);
    std::unique_ptr<const RtInt*[]> starts(new (std::nothrow) const RtInt*[size_t(blocks)]);
    if (starts == nullptr) return false;
    for (int b = 0, l = 0; b < blocks; ++b) {
        starts[b] = verts;
        for (const int end = l + std::min(LOOPS_A_BLOCK, loops - l); l < end; ++l) {
            verts += d.nverts[l];
        }
    }
    int bits = 0;
    while ((1 << bits) < blocks) ++bits;
    for (int k = 0; k < (1 << bits); ++k) {
        const int b = reversed_bits(k, bits);
        if (b >= blocks) continue;
        const int first = b * LOOPS_A_BLOCK;
        if (!draw_loop_runs(d, first, first + std::min(LOOPS_A_BLOCK, loops - first), starts[b])) {
            return false;
        }
    }
    return true;
}

// Keeps the drawable loops of the list in order, apart from their drawing.
void keep_loops(KeptLoops& kept, const LoopDrawing& d, int loops, const RtInt* verts) {
    for (int l = 0; l < loops; ++l) {
        const int n = d.nverts[l];
        if (d.all_drawn || indices_valid(n, verts)) kept.loop(verts, n);
        verts += n;
    }
}

// Draws nloops closed outlines by index (loop l has nverts[l] indices, taken
// in turn from verts), stopping at a negative count; a loop with a negative
// index is skipped. A vertex shared by many loops is projected once when the
// loops name every vertex up to the highest (as a mesh does), else each
// loop's vertices are projected as the loop is drawn. Either way every
// segment comes out as if each vertex were projected where it is used, less
// runs and loops known drawn (LOOPS_A_RUN), and perhaps in another order
// (LOOPS_A_BLOCK); every loop is still kept, in order. When memory runs out
// for the projection, what was drawn up to there is sent.
void draw_indexed_loops(int nloops, const RtInt nverts[], const RtInt verts[], const float* P) {
    X11VectorPreviewer* out = previewer();
    if (out == nullptr || !out->has_outputs()) return;  // nothing would take the lines
    const IndexedLoops m = measure_loops(nloops, nverts, verts);
    const size_t vertices = size_t(m.highest) + 1;
    const bool is_mesh = vertices <= m.indices;
    // The whole mesh is asked about first when it has runs to spare: by the
    // box of its vertices in object space before they are projected, then
    // by the box of their raster points.
    const bool runs_asked = is_mesh && out->drawn_segments_skippable();
    const bool whole_asked = runs_asked && m.loops > LOOPS_A_RUN;
    bool all_known_drawn = whole_asked && object_box_known_drawn(out, P, vertices);
    const RasterPoint* shared = nullptr;
    if (is_mesh && !all_known_drawn && (shared = project_vertices(P, vertices)) == nullptr) return;
    KeptLoops kept(P, is_mesh ? vertices : 0);
    all_known_drawn =
        all_known_drawn || (whole_asked && out->box_drawn(RasterBox::of(shared, vertices)));
    LoopDrawing d{out, nverts, P, shared, m.all_drawn, runs_asked, all_known_drawn, &kept};
    const bool spread =
        runs_asked && !all_known_drawn && m.loops >= 2 * LOOPS_A_BLOCK && out->drawing_order_free();
    if (spread) {
        if (kept.on()) keep_loops(kept, d, m.loops, verts);
        d.kept = nullptr;
        if (draw_blocks_spread(d, m.loops, verts)) {
            out->send_queued_segments();
            return;
        }
        // Out of memory for the blocks' places: drawn in order after all.
    }
    draw_loop_runs(d, 0, m.loops, verts);
    out->send_queued_segments();
}

}  // namespace

void draw_polygon(int n, const float* P) {
    if (P == nullptr) {
        report_missing_positions();
        return;
    }
    if (dump_diced_rib != 0) {
        dump_polygon_fan(n, P);
        return;
    }
    X11VectorPreviewer* out = previewer();
    if (n < 1 || out == nullptr || !out->has_outputs()) return;
    keep_outline(P, n);
    const RasterPoint* points = project_vertices(P, size_t(n));
    if (points == nullptr) return;
    draw_outline(out, n, points, [](int k) { return k; });
    out->send_queued_segments();
}

void draw_points_polygons(int npolys, const RtInt nverts[], const RtInt verts[], const float* P) {
    if (P == nullptr) {
        report_missing_positions();
        return;
    }
    draw_indexed_loops(npolys, nverts, verts, P);
}

// ---- Entry points ----

RtVoid RiPolygonV(RtInt nverts, RtInt n, RtToken tokens[], RtPointer params[]) {
    if (motion_guard()) return;
    draw_polygon(nverts, find_positions(n, tokens, params));
}

RtVoid RiPolygon(RtInt nverts, ...) {
    va_list ap;
    va_start(ap, nverts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPolygonV(nverts, n, _V_names, _V_params);
}

// The outer boundary and every hole are drawn (or dumped as fans) in turn,
// each as a polygon of its own: holes are not joined to the boundary.
RtVoid RiGeneralPolygonV(RtInt nloops, RtInt nverts[], RtInt n, RtToken tokens[],
                         RtPointer params[]) {
    if (motion_guard()) return;
    const float* P = find_positions(n, tokens, params);
    for (RtInt l = 0; l < nloops; ++l) {
        if (nverts[l] < 0) return;
        draw_polygon(nverts[l], P);
        if (P == nullptr) return;  // reported once, not once per loop
        P += 3 * nverts[l];
    }
}

RtVoid RiGeneralPolygon(RtInt nloops, RtInt nverts[], ...) {
    va_list ap;
    va_start(ap, nverts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiGeneralPolygonV(nloops, nverts, n, _V_names, _V_params);
}

RtVoid RiPointsPolygonsV(RtInt npolys, RtInt nverts[], RtInt verts[], RtInt n, RtToken tokens[],
                         RtPointer params[]) {
    if (motion_guard()) return;
    if (curxform != nullptr) curxform->flags |= XFORM_POINTS_POLYGONS;
    draw_points_polygons(npolys, nverts, verts, find_positions(n, tokens, params));
}

RtVoid RiPointsPolygons(RtInt npolys, RtInt nverts[], RtInt verts[], ...) {
    va_list ap;
    va_start(ap, verts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPointsPolygonsV(npolys, nverts, verts, n, _V_names, _V_params);
}

// Every loop of every polygon, boundaries and holes alike, is drawn by index
// as a closed outline in the order given, like the polygons of
// RiPointsPolygons: the loops are always drawn and never dumped, since the
// indexed polygons keep no world-space triangles of their own to print.
RtVoid RiPointsGeneralPolygonsV(RtInt npolys, RtInt nloops[], RtInt nverts[], RtInt verts[],
                                RtInt n, RtToken tokens[], RtPointer params[]) {
    if (motion_guard()) return;
    const float* P = find_positions(n, tokens, params);
    if (P == nullptr) {
        report_missing_positions();
        return;
    }
    // The loops of every polygon, up to the first negative loop count, are
    // drawn as one list.
    long long loops = 0;
    for (RtInt p = 0; p < npolys && nloops[p] >= 0 && loops <= INT_MAX; ++p) loops += nloops[p];
    draw_indexed_loops(int(std::min<long long>(loops, INT_MAX)), nverts, verts, P);
}

RtVoid RiPointsGeneralPolygons(RtInt npolys, RtInt nloops[], RtInt nverts[], RtInt verts[], ...) {
    va_list ap;
    va_start(ap, verts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPointsGeneralPolygonsV(npolys, nloops, nverts, verts, n, _V_names, _V_params);
}
