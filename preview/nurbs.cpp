// NURBS surfaces (RiNuPatch, RiNuPatchV): the consistency checks of the knot
// vectors, B-spline evaluation of "P" and "Pw" (divided through by w) and
// the lattice drawn through the shared grid, followed by the trim loops of
// the current attributes mapped onto the surface.
//
// Lattice rule: in each direction every non-empty knot span inside
// [min, max] gets trunc(2 x relative detail) cells, at least one, so the
// default detail draws two cells a span and the lattice lines fall on the
// knot lines; the first parameter is min and the last max exactly. When the
// spans would need more than GRID_CELLS_MAX cells, each span gets
// GRID_CELLS_MAX / spans cells; with more spans than GRID_CELLS_MAX the
// lattice is GRID_CELLS_MAX even steps over [min, max].
#include "preview/nurbs.h"

#include <algorithm>
#include <cstdarg>

#include "preview/lattice.h"
#include "preview/patches.h"
#include "preview/trims.h"
#include "ri/ri.h"
#include "ri/transforms.h"
#include "support/error.h"

bool knot_direction_valid(const char* what, const KnotDirection& d) {
    if (d.count < 1 || d.order < 1) {
        QuillError(RIE_RANGE, RIE_ERROR, "%s count %d and order %d must both be at least 1", what,
                   d.count, d.order);
        return false;
    }
    if (d.order > NURBS_ORDER_MAX) {
        QuillError(RIE_LIMIT, RIE_ERROR, "%s order %d is above the highest order drawn, %d", what,
                   d.order, NURBS_ORDER_MAX);
        return false;
    }
    if (d.order > d.count) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR, "%s order %d is greater than its %d control points",
                   what, d.order, d.count);
        return false;
    }
    if (d.knot == nullptr) {
        QuillError(RIE_MISSINGDATA, RIE_ERROR, "%s has no knots", what);
        return false;
    }
    const long long nknots = static_cast<long long>(d.count) + d.order;
    for (long long i = 0; i + 1 < nknots; ++i) {
        if (!(d.knot[i] <= d.knot[i + 1])) {
            QuillError(RIE_CONSISTENCY, RIE_ERROR,
                       "%s knot %lld (%g) is less than the one before (%g)", what, i + 1,
                       d.knot[i + 1], d.knot[i]);
            return false;
        }
    }
    const float lo = d.knot[d.order - 1];
    const float hi = d.knot[d.count];
    if (!(d.min < d.max) || d.min < lo || d.max > hi) {
        QuillError(RIE_RANGE, RIE_ERROR, "%s range [%g, %g] is not a non-empty part of [%g, %g]",
                   what, d.min, d.max, lo, hi);
        return false;
    }
    return true;
}

int knot_span(const KnotDirection& d, float t) {
    const int first = d.order - 1;
    const int last = d.count - 1;
    // The last knot of first..last that is <= t.
    const float* begin = d.knot + first;
    int i = static_cast<int>(std::upper_bound(begin, d.knot + last + 1, t) - d.knot) - 1;
    i = std::clamp(i, first, last);
    while (i > first && !(d.knot[i] < d.knot[i + 1])) --i;
    return i;
}

void basis_values(const KnotDirection& d, int span, double t, double* values) {
    double left[NURBS_ORDER_MAX];
    double right[NURBS_ORDER_MAX];
    values[0] = 1.0;
    for (int j = 1; j < d.order; ++j) {
        left[j] = t - d.knot[span + 1 - j];
        right[j] = d.knot[span + j] - t;
        double saved = 0.0;
        for (int r = 0; r < j; ++r) {
            // right[r + 1] + left[j - r] spans at least the non-empty span.
            const double term = values[r] / (right[r + 1] + left[j - r]);
            values[r] = saved + right[r + 1] * term;
            saved = left[j - r] * term;
        }
        values[j] = saved;
    }
}

namespace {

// The part of span i inside [min, max], if any.
struct SpanPiece {
    int span;
    float lo;
    float hi;
};

int pieces_in_range(const KnotDirection& d, SpanPiece* pieces, int capacity) {
    int count = 0;
    for (int i = d.order - 1; i <= d.count - 1; ++i) {
        const float lo = std::max(d.knot[i], d.min);
        const float hi = std::min(d.knot[i + 1], d.max);
        if (!(lo < hi)) continue;
        if (count < capacity) pieces[count] = {i, lo, hi};
        ++count;
    }
    return count;
}

int even_lattice(const KnotDirection& d, float* params, int* spans) {
    const int cells = GRID_CELLS_MAX;
    for (int k = 0; k < cells; ++k) {
        params[k] = d.min + (d.max - d.min) * (static_cast<float>(k) / cells);
        spans[k] = knot_span(d, params[k]);
    }
    params[cells] = d.max;
    spans[cells] = knot_span(d, d.max);
    return cells;
}

}  // namespace

int parameter_lattice(const KnotDirection& d, float per_span, float params[GRID_POINTS],
                      int spans[GRID_POINTS]) {
    SpanPiece pieces[GRID_CELLS_MAX];
    const int npieces = pieces_in_range(d, pieces, GRID_CELLS_MAX);
    if (npieces > GRID_CELLS_MAX || npieces < 1) return even_lattice(d, params, spans);
    const int per_piece =
        std::max(1, std::min(cells_for_relative_detail(per_span), GRID_CELLS_MAX / npieces));
    int k = 0;
    for (int p = 0; p < npieces; ++p) {
        const SpanPiece& piece = pieces[p];
        for (int c = 0; c < per_piece; ++c, ++k) {
            params[k] = piece.lo + (piece.hi - piece.lo) * (static_cast<float>(c) / per_piece);
            spans[k] = piece.span;
        }
    }
    params[k] = d.max;
    spans[k] = pieces[npieces - 1].span;
    return k;
}

namespace {

// Basis values of one lattice line: its span and order values.
struct LineBasis {
    int span;
    double values[NURBS_ORDER_MAX];
};

void combine(const NurbsSurface& s, const LineBasis& bu, const LineBasis& bv, float out[3]) {
    const int stride = s.rational ? 4 : 3;
    const int ufirst = bu.span - s.u.order + 1;
    const int vfirst = bv.span - s.v.order + 1;
    double sum[4] = {0.0, 0.0, 0.0, 0.0};
    for (int a = 0; a < s.v.order; ++a) {
        const float* row =
            s.points + (static_cast<long long>(vfirst + a) * s.u.count + ufirst) * stride;
        for (int b = 0; b < s.u.order; ++b) {
            const double weight = bv.values[a] * bu.values[b];
            const float* cp = row + b * stride;
            for (int k = 0; k < stride; ++k) sum[k] += weight * cp[k];
        }
    }
    const double w = s.rational ? sum[3] : 1.0;
    for (int k = 0; k < 3; ++k) out[k] = static_cast<float>(sum[k] / w);
}

void line_basis(const KnotDirection& d, int span, float t, LineBasis* out) {
    out->span = span;
    basis_values(d, span, t, out->values);
}

}  // namespace

void surface_point(const NurbsSurface& s, float u, float v, float out[3]) {
    LineBasis bu, bv;
    line_basis(s.u, knot_span(s.u, u), u, &bu);
    line_basis(s.v, knot_span(s.v, v), v, &bv);
    combine(s, bu, bv, out);
}

void fill_nurbs_lattice(const NurbsSurface& s, int* nu, int* nv) {
    float uparams[GRID_POINTS], vparams[GRID_POINTS];
    int uspans[GRID_POINTS], vspans[GRID_POINTS];
    *nu = parameter_lattice(s.u, SURFACE_CELLS_PER_SPAN, uparams, uspans);
    *nv = parameter_lattice(s.v, SURFACE_CELLS_PER_SPAN, vparams, vspans);
    static LineBasis columns[GRID_POINTS];
    for (int i = 0; i <= *nu; ++i) line_basis(s.u, uspans[i], uparams[i], &columns[i]);
    for (int j = 0; j <= *nv; ++j) {
        LineBasis row;
        line_basis(s.v, vspans[j], vparams[j], &row);
        for (int i = 0; i <= *nu; ++i) combine(s, columns[i], row, grid[j][i]);
    }
}

namespace {

// The last "P" or "Pw" of the list (null points when there is none).
NurbsSurface surface_from_list(RtInt n, RtToken tokens[], RtPointer params[]) {
    NurbsSurface s{};
    for (int k = 0; k < n; ++k) {
        const PositionKind kind = position_kind(tokens[k]);
        if ((kind != POSITION_P && kind != POSITION_PW) || params[k] == nullptr) continue;
        s.points = static_cast<const float*>(params[k]);
        s.rational = kind == POSITION_PW;
    }
    return s;
}

}  // namespace

RtVoid RiNuPatchV(RtInt nu, RtInt uorder, RtFloat uknot[], RtFloat umin, RtFloat umax, RtInt nv,
                  RtInt vorder, RtFloat vknot[], RtFloat vmin, RtFloat vmax, RtInt n,
                  RtToken tokens[], RtPointer params[]) {
    if (motion_guard()) return;
    NurbsSurface s = surface_from_list(n, tokens, params);
    s.u = {nu, uorder, uknot, umin, umax};
    s.v = {nv, vorder, vknot, vmin, vmax};
    if (!knot_direction_valid("NuPatch: u", s.u) || !knot_direction_valid("NuPatch: v", s.v)) {
        return;
    }
    if (s.points == nullptr) {
        RMError(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found");
        return;
    }
    int cells_u = 0, cells_v = 0;
    fill_nurbs_lattice(s, &cells_u, &cells_v);
    draw_grid(cells_u, cells_v);
    draw_trim_loops(s);
}

RtVoid RiNuPatch(RtInt nu, RtInt uorder, RtFloat uknot[], RtFloat umin, RtFloat umax, RtInt nv,
                 RtInt vorder, RtFloat vknot[], RtFloat vmin, RtFloat vmax, ...) {
    va_list ap;
    va_start(ap, vmax);
    int n = _v_to_array(ap);
    va_end(ap);
    RiNuPatchV(nu, uorder, uknot, umin, umax, nv, vorder, vknot, vmin, vmax, n, _V_names,
               _V_params);
}
