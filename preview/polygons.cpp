// Polygon requests: RiPolygon, RiGeneralPolygon, RiPointsPolygons and
// RiPointsGeneralPolygons in their variadic and array forms, and the two
// drawers they share: draw_polygon (an outline, or a triangle fan under
// either dump mode) and draw_points_polygons (outlines through indices).
// The array forms do the work; the variadic forms take their lists apart.
#include "preview/polygons.h"

#include <cstdarg>
#include <cstring>

#include "driver/globals.h"
#include "preview/dump.h"
#include "preview/projection.h"
#include "preview/x11_previewer.h"
#include "ri/transforms.h"
#include "support/error.h"

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

// Draws the closed outline of n vertices, vertex k being P[index(k)]. Copies
// of the vertices are projected, so the caller's positions stay as given;
// with n = 1 the closing segment is a single point.
template <typename VertexIndex>
void draw_outline(int n, const float* P, VertexIndex index) {
    X11VectorPreviewer* out = previewer();
    if (n < 1 || out == nullptr) return;
    float first[3], previous[3], current[3];
    memcpy(first, P + 3 * index(0), sizeof first);
    toscreen(first);
    memcpy(previous, first, sizeof previous);
    for (int k = 1; k < n; ++k) {
        memcpy(current, P + 3 * index(k), sizeof current);
        toscreen(current);
        out->X11_draw_segment(previous, current);
        memcpy(previous, current, sizeof previous);
    }
    out->X11_draw_segment(previous, first);
}

// Whether the n indices from verts all name a vertex (none is negative).
bool indices_valid(int n, const RtInt verts[]) {
    for (int k = 0; k < n; ++k) {
        if (verts[k] < 0) return false;
    }
    return true;
}

void draw_indexed_outline(int n, const RtInt verts[], const float* P) {
    if (!indices_valid(n, verts)) return;
    draw_outline(n, P, [verts](int k) { return verts[k]; });
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
    draw_outline(n, P, [](int k) { return k; });
}

void draw_points_polygons(int npolys, const RtInt nverts[], const RtInt verts[], const float* P) {
    if (P == nullptr) {
        report_missing_positions();
        return;
    }
    for (int p = 0; p < npolys; ++p) {
        if (nverts[p] < 0) return;
        draw_indexed_outline(nverts[p], verts, P);
        verts += nverts[p];
    }
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
    for (RtInt p = 0; p < npolys; ++p) {
        if (nloops[p] < 0) return;
        for (RtInt l = 0; l < nloops[p]; ++l) {
            if (*nverts < 0) return;
            draw_indexed_outline(*nverts, verts, P);
            verts += *nverts;
            ++nverts;
        }
    }
}

RtVoid RiPointsGeneralPolygons(RtInt npolys, RtInt nloops[], RtInt nverts[], RtInt verts[], ...) {
    va_list ap;
    va_start(ap, verts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPointsGeneralPolygonsV(npolys, nloops, nverts, verts, n, _V_names, _V_params);
}
