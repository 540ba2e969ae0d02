// Trim curves: the loops given by RiTrimCurve, kept with the attributes, and
// their drawing onto the NURBS surfaces that follow.
#ifndef TRACERY_PREVIEW_TRIMS_H
#define TRACERY_PREVIEW_TRIMS_H

struct NurbsSurface;

// The checked trim loops of one RiTrimCurve, copied into one block that
// lives as long as the attribute level that made it. Curves are listed loop
// by loop; curve c has order[c], n[c] control points (u, v, w homogeneous)
// and n[c] + order[c] knots, drawn over [min[c], max[c]].
struct TrimLoops {
    int nloops;
    int ncurves_total;
    const int* ncurves;
    const int* order;
    const int* n;
    const float* knot;
    const float* min;
    const float* max;
    const float* u;
    const float* v;
    const float* w;
};

// Draws every curve of the current attributes' trim loops on the surface, as
// one polyline each (a lattice of one row).
void draw_trim_loops(const NurbsSurface& s);

#endif  // TRACERY_PREVIEW_TRIMS_H
