// Entry points of the geometric primitives: polygons, general and indexed
// polygons, bilinear and bicubic patches, patch meshes, NURBS surfaces, trim
// curves and the seven quadrics, in their variadic and array forms. Each
// drawing procedure applies the motion guard (inside a motion block only the
// first sample is drawn) and then draws nothing yet: the wireframe
// tessellation and drawing land with a later issue. RiTrimCurve does nothing.
//
// The quadrics and RiPatch do their work in the variadic form; their array
// forms interleave the list with _array_to_v and pass its first 40 words.
// The polygon procedures, RiPatchMesh and RiNuPatch work in the array form;
// their variadic forms take the list apart with _v_to_array.
#include <cstdarg>

#include "ri/ri.h"
#include "ri/transforms.h"
#include "support/error.h"

// The first 40 words of an interleaved (token, value) list as varargs.
#define FIRST_40_WORDS(l)                                                                          \
    l[0], l[1], l[2], l[3], l[4], l[5], l[6], l[7], l[8], l[9], l[10], l[11], l[12], l[13], l[14], \
        l[15], l[16], l[17], l[18], l[19], l[20], l[21], l[22], l[23], l[24], l[25], l[26], l[27], \
        l[28], l[29], l[30], l[31], l[32], l[33], l[34], l[35], l[36], l[37], l[38], l[39]

// ---- Polygons ----

RtVoid RiPolygonV(RtInt /*nverts*/, RtInt /*n*/, RtToken /*tokens*/[], RtPointer /*params*/[]) {
    if (motion_guard()) return;
}

RtVoid RiPolygon(RtInt nverts, ...) {
    va_list ap;
    va_start(ap, nverts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPolygonV(nverts, n, _V_names, _V_params);
}

RtVoid RiGeneralPolygonV(RtInt /*nloops*/, RtInt /*nverts*/[], RtInt /*n*/, RtToken /*tokens*/[],
                         RtPointer /*params*/[]) {
    if (motion_guard()) return;
}

RtVoid RiGeneralPolygon(RtInt nloops, RtInt nverts[], ...) {
    va_list ap;
    va_start(ap, nverts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiGeneralPolygonV(nloops, nverts, n, _V_names, _V_params);
}

RtVoid RiPointsPolygonsV(RtInt /*npolys*/, RtInt /*nverts*/[], RtInt /*verts*/[], RtInt /*n*/,
                         RtToken /*tokens*/[], RtPointer /*params*/[]) {
    if (motion_guard()) return;
}

RtVoid RiPointsPolygons(RtInt npolys, RtInt nverts[], RtInt verts[], ...) {
    va_list ap;
    va_start(ap, verts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPointsPolygonsV(npolys, nverts, verts, n, _V_names, _V_params);
}

RtVoid RiPointsGeneralPolygonsV(RtInt /*npolys*/, RtInt /*nloops*/[], RtInt /*nverts*/[],
                                RtInt /*verts*/[], RtInt /*n*/, RtToken /*tokens*/[],
                                RtPointer /*params*/[]) {
    if (motion_guard()) return;
}

RtVoid RiPointsGeneralPolygons(RtInt npolys, RtInt nloops[], RtInt nverts[], RtInt verts[], ...) {
    va_list ap;
    va_start(ap, verts);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPointsGeneralPolygonsV(npolys, nloops, nverts, verts, n, _V_names, _V_params);
}
