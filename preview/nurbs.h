// NURBS surfaces: the knot-vector checks, B-spline evaluation and the
// parameter lattice behind RiNuPatch, shared with the trim curves (which are
// NURBS curves over the same kind of knot vector).
#ifndef TRACERY_PREVIEW_NURBS_H
#define TRACERY_PREVIEW_NURBS_H

#include "preview/grid.h"

// The highest order (degree + 1) evaluated; higher orders are reported.
constexpr int NURBS_ORDER_MAX = 32;

// One parameter direction: count control points of order `order` over
// count + order knots, drawn over [min, max].
struct KnotDirection {
    int count;
    int order;
    const float* knot;
    float min;
    float max;
};

// Checks one direction: count and order at least 1, order at most count and
// NURBS_ORDER_MAX, knots non-decreasing, min < max inside
// [knot[order - 1], knot[count]]. Reports the first fault (severity 2) with
// what (e.g. "NuPatch: u") naming the request and direction, and returns
// false then.
bool knot_direction_valid(const char* what, const KnotDirection& d);

// The span index i (order - 1 <= i <= count - 1, knot[i] < knot[i + 1])
// whose interval holds t; below the domain the first span, at or above its
// top end the last non-empty span.
int knot_span(const KnotDirection& d, float t);

// The order non-zero B-spline basis values at t on span i, for control
// points i - order + 1 .. i.
void basis_values(const KnotDirection& d, int span, double t, double* values);

// The parameters of a lattice over [min, max]: params[0..cells] (the first
// min, the last max) and the span of each; returns cells, at most
// GRID_CELLS_MAX. Each non-empty knot span inside [min, max] gets
// trunc(per_span x relative detail) cells (at least one), fewer when the
// total would pass GRID_CELLS_MAX, and an even spread of GRID_CELLS_MAX cells
// over [min, max] when there are more spans than that.
int parameter_lattice(const KnotDirection& d, float per_span, float params[GRID_POINTS],
                      int spans[GRID_POINTS]);

// Cells per knot span at relative detail 1: surfaces, and trim curves, which
// are single polylines and can afford to be smoother.
constexpr float SURFACE_CELLS_PER_SPAN = 2.0f;
constexpr float TRIM_CELLS_PER_SPAN = 4.0f;

// A NURBS surface: u and v directions and control points, u fastest, of
// three ("P") or four ("Pw", homogeneous) floats.
struct NurbsSurface {
    KnotDirection u;
    KnotDirection v;
    const float* points;
    bool rational;
};

// The surface point at (u, v), divided through by w when rational.
void surface_point(const NurbsSurface& s, float u, float v, float out[3]);

// Fills grid rows 0..nv and columns 0..nu with the surface's lattice and
// returns nu and nv through the pointers.
void fill_nurbs_lattice(const NurbsSurface& s, int* nu, int* nv);

#endif  // TRACERY_PREVIEW_NURBS_H
