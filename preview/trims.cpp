// Trim curves (RiTrimCurve): the checks of each curve, the copy of the loops
// kept with the current attributes, and the drawing of the loops onto the
// NuPatches that follow in the same attribute scope. The previewer does not
// cut the surface: it draws each trim curve as a polyline on it, which is
// how modellers show trimming.
//
// A curve is sampled on the lattice rule of the NURBS surfaces, twice as
// densely (4 cells per non-empty knot span at the default detail, following
// the relative detail, at most GRID_CELLS_MAX cells a curve, ends at min and
// max), and each sample (u, v) = (u/w, v/w) is held to the patch's drawn
// range before the surface point is taken there.
#include "preview/trims.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "preview/lattice.h"
#include "preview/nurbs.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "ri/ri.h"
#include "support/error.h"
#include "support/memory.h"

namespace {

// Largest block of loops kept: far beyond any real trim, small enough that
// the sizes below never overflow.
constexpr long long TRIM_BYTES_MAX = 64LL << 20;

struct TrimSizes {
    long long curves = 0;
    long long knots = 0;
    long long points = 0;
};

bool loops_counted(RtInt nloops, const RtInt ncurves[], TrimSizes* sizes) {
    if (nloops < 0) {
        QuillError(RIE_RANGE, RIE_ERROR, "TrimCurve: %d loops", nloops);
        return false;
    }
    if (nloops > 0 && ncurves == nullptr) {
        QuillError(RIE_MISSINGDATA, RIE_ERROR, "TrimCurve: %d loops without curve counts", nloops);
        return false;
    }
    for (int l = 0; l < nloops; ++l) {
        if (ncurves[l] < 0) {
            QuillError(RIE_RANGE, RIE_ERROR, "TrimCurve: loop %d has %d curves", l, ncurves[l]);
            return false;
        }
        sizes->curves += ncurves[l];
        if (sizes->curves * 16 > TRIM_BYTES_MAX) {
            QuillError(RIE_LIMIT, RIE_ERROR, "TrimCurve: more than %lld curves",
                       TRIM_BYTES_MAX / 16);
            return false;
        }
    }
    return true;
}

// Checks every curve's order, count, knots and range; adds up the sizes.
bool curves_valid(const RtInt order[], const RtFloat knot[], const RtFloat min[],
                  const RtFloat max[], const RtInt n[], TrimSizes* sizes) {
    const float* curve_knots = knot;
    for (long long c = 0; c < sizes->curves; ++c) {
        const KnotDirection d = {n[c], order[c], curve_knots, min[c], max[c]};
        char what[48];
        std::snprintf(what, sizeof what, "TrimCurve: curve %lld", c);
        if (!knot_direction_valid(what, d)) return false;
        sizes->knots += static_cast<long long>(n[c]) + order[c];
        sizes->points += n[c];
        if ((sizes->knots + 3 * sizes->points) * 4 > TRIM_BYTES_MAX) {
            QuillError(RIE_LIMIT, RIE_ERROR, "TrimCurve: more than %lld bytes of curves",
                       TRIM_BYTES_MAX);
            return false;
        }
        curve_knots += static_cast<long long>(n[c]) + order[c];
    }
    return true;
}

// Copies count values after *cursor and advances it.
template <typename T>
const T* copy_run(const T* values, long long count, char** cursor) {
    T* out = reinterpret_cast<T*>(*cursor);
    if (count > 0) std::memcpy(out, values, static_cast<size_t>(count) * sizeof(T));
    *cursor += count * static_cast<long long>(sizeof(T));
    return out;
}

const TrimLoops* kept_copy(RtInt nloops, const RtInt ncurves[], const RtInt order[],
                           const RtFloat knot[], const RtFloat min[], const RtFloat max[],
                           const RtInt n[], const RtFloat u[], const RtFloat v[], const RtFloat w[],
                           const TrimSizes& sizes, int tag) {
    const long long bytes = static_cast<long long>(sizeof(TrimLoops)) +
                            4 * (nloops + 4 * sizes.curves + sizes.knots + 3 * sizes.points);
    auto* block = static_cast<char*>(alloc_param_tagged(static_cast<int>(bytes), tag));
    if (block == nullptr) return nullptr;
    auto* loops = reinterpret_cast<TrimLoops*>(block);
    char* cursor = block + sizeof(TrimLoops);
    loops->nloops = nloops;
    loops->ncurves_total = static_cast<int>(sizes.curves);
    loops->ncurves = copy_run(ncurves, nloops, &cursor);
    loops->order = copy_run(order, sizes.curves, &cursor);
    loops->n = copy_run(n, sizes.curves, &cursor);
    loops->min = copy_run(min, sizes.curves, &cursor);
    loops->max = copy_run(max, sizes.curves, &cursor);
    loops->knot = copy_run(knot, sizes.knots, &cursor);
    loops->u = copy_run(u, sizes.points, &cursor);
    loops->v = copy_run(v, sizes.points, &cursor);
    loops->w = copy_run(w, sizes.points, &cursor);
    return loops;
}

}  // namespace

RtVoid RiTrimCurve(RtInt nloops, RtInt ncurves[], RtInt order[], RtFloat knot[], RtFloat min[],
                   RtFloat max[], RtInt n[], RtFloat u[], RtFloat v[], RtFloat w[]) {
    TrimSizes sizes;
    if (!loops_counted(nloops, ncurves, &sizes)) return;
    if (sizes.curves > 0 &&
        (order == nullptr || knot == nullptr || min == nullptr || max == nullptr || n == nullptr ||
         u == nullptr || v == nullptr || w == nullptr)) {
        QuillError(RIE_MISSINGDATA, RIE_ERROR, "TrimCurve: %lld curves with lists missing",
                   sizes.curves);
        return;
    }
    if (!curves_valid(order, knot, min, max, n, &sizes)) return;
    if (renderer == nullptr) return;
    GState* state = renderer->ready_gstate();
    if (state == nullptr) return;
    // The copy is released with the state that keeps it, not with the block
    // under way: after nesting errors that were let go on, a state older
    // than the frame may be current inside it, and must not keep loops that
    // the frame's end releases.
    int tag = gstate_lifetime_tag(state);
    if (tag <= 0) tag = block_level;
    const TrimLoops* loops =
        kept_copy(nloops, ncurves, order, knot, min, max, n, u, v, w, sizes, tag);
    if (loops != nullptr) state->trim_loops = loops;
}

namespace {

// The trim curve point at t, (u/w, v/w), held to the surface's drawn range.
void curve_point(const KnotDirection& d, const float* cu, const float* cv, const float* cw,
                 int span, float t, const NurbsSurface& s, float out[3]) {
    double basis[NURBS_ORDER_MAX];
    basis_values(d, span, t, basis);
    double hu = 0.0, hv = 0.0, hw = 0.0;
    const int first = span - d.order + 1;
    for (int k = 0; k < d.order; ++k) {
        hu += basis[k] * cu[first + k];
        hv += basis[k] * cv[first + k];
        hw += basis[k] * cw[first + k];
    }
    const auto pu = static_cast<float>(std::clamp(hu / hw, double(s.u.min), double(s.u.max)));
    const auto pv = static_cast<float>(std::clamp(hv / hw, double(s.v.min), double(s.v.max)));
    surface_point(s, pu, pv, out);
}

}  // namespace

void draw_trim_loops(const NurbsSurface& s) {
    const GState* state = renderer != nullptr ? renderer->gstate : nullptr;
    if (state == nullptr || state->trim_loops == nullptr) return;
    const TrimLoops& loops = *state->trim_loops;
    const float* knots = loops.knot;
    const float* cu = loops.u;
    const float* cv = loops.v;
    const float* cw = loops.w;
    float params[GRID_POINTS];
    int spans[GRID_POINTS];
    for (int c = 0; c < loops.ncurves_total; ++c) {
        const KnotDirection d = {loops.n[c], loops.order[c], knots, loops.min[c], loops.max[c]};
        const int cells = parameter_lattice(d, TRIM_CELLS_PER_SPAN, params, spans);
        for (int i = 0; i <= cells; ++i) {
            curve_point(d, cu, cv, cw, spans[i], params[i], s, grid[0][i]);
        }
        draw_grid(cells, 0);
        knots += d.count + d.order;
        cu += d.count;
        cv += d.count;
        cw += d.count;
    }
}
