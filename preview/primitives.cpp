// Entry points of the geometric primitives other than polygons: bilinear and
// bicubic patches, patch meshes, NURBS surfaces, trim
// curves and the seven quadrics, in their variadic and array forms. Each
// drawing procedure applies the motion guard (inside a motion block only the
// first sample is drawn) and then draws nothing yet: the wireframe
// tessellation and drawing land with a later issue. RiTrimCurve does nothing.
//
// The quadrics and RiPatch do their work in the variadic form; their array
// forms interleave the list with _array_to_v and pass its first 40 words.
// RiPatchMesh and RiNuPatch work in the array form;
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

// ---- Patches ----

RtVoid RiPatch(RtToken /*type*/, ...) {
    if (motion_guard()) return;
}

RtVoid RiPatchV(RtToken type, RtInt n, RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiPatch(type, FIRST_40_WORDS(l));
}

RtVoid RiPatchMeshV(RtToken /*type*/, RtInt /*nu*/, RtToken /*uwrap*/, RtInt /*nv*/,
                    RtToken /*vwrap*/, RtInt /*n*/, RtToken /*tokens*/[], RtPointer /*params*/[]) {
    if (motion_guard()) return;
}

RtVoid RiPatchMesh(RtToken type, RtInt nu, RtToken uwrap, RtInt nv, RtToken vwrap, ...) {
    va_list ap;
    va_start(ap, vwrap);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPatchMeshV(type, nu, uwrap, nv, vwrap, n, _V_names, _V_params);
}

RtVoid RiNuPatchV(RtInt /*nu*/, RtInt /*uorder*/, RtFloat /*uknot*/[], RtFloat /*umin*/,
                  RtFloat /*umax*/, RtInt /*nv*/, RtInt /*vorder*/, RtFloat /*vknot*/[],
                  RtFloat /*vmin*/, RtFloat /*vmax*/, RtInt /*n*/, RtToken /*tokens*/[],
                  RtPointer /*params*/[]) {
    if (motion_guard()) return;
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

RtVoid RiTrimCurve(RtInt /*nloops*/, RtInt /*ncurves*/[], RtInt /*order*/[], RtFloat /*knot*/[],
                   RtFloat /*min*/[], RtFloat /*max*/[], RtInt /*n*/[], RtFloat /*u*/[],
                   RtFloat /*v*/[], RtFloat /*w*/[]) {}

// ---- Quadrics ----

RtVoid RiSphere(RtFloat /*radius*/, RtFloat /*zmin*/, RtFloat /*zmax*/, RtFloat /*thetamax*/, ...) {
    if (motion_guard()) return;
}

RtVoid RiSphereV(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                 RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiSphere(radius, zmin, zmax, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiCone(RtFloat /*height*/, RtFloat /*radius*/, RtFloat /*thetamax*/, ...) {
    if (motion_guard()) return;
}

RtVoid RiConeV(RtFloat height, RtFloat radius, RtFloat thetamax, RtInt n, RtToken tokens[],
               RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiCone(height, radius, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiCylinder(RtFloat /*radius*/, RtFloat /*zmin*/, RtFloat /*zmax*/, RtFloat /*thetamax*/,
                  ...) {
    if (motion_guard()) return;
}

RtVoid RiCylinderV(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                   RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiCylinder(radius, zmin, zmax, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiHyperboloid(RtPoint /*point1*/, RtPoint /*point2*/, RtFloat /*thetamax*/, ...) {
    if (motion_guard()) return;
}

RtVoid RiHyperboloidV(RtPoint point1, RtPoint point2, RtFloat thetamax, RtInt n, RtToken tokens[],
                      RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiHyperboloid(point1, point2, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiParaboloid(RtFloat /*rmax*/, RtFloat /*zmin*/, RtFloat /*zmax*/, RtFloat /*thetamax*/,
                    ...) {
    if (motion_guard()) return;
}

RtVoid RiParaboloidV(RtFloat rmax, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                     RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiParaboloid(rmax, zmin, zmax, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiDisk(RtFloat /*height*/, RtFloat /*radius*/, RtFloat /*thetamax*/, ...) {
    if (motion_guard()) return;
}

RtVoid RiDiskV(RtFloat height, RtFloat radius, RtFloat thetamax, RtInt n, RtToken tokens[],
               RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiDisk(height, radius, thetamax, FIRST_40_WORDS(l));
}

RtVoid RiTorus(RtFloat /*majorrad*/, RtFloat /*minorrad*/, RtFloat /*phimin*/, RtFloat /*phimax*/,
               RtFloat /*thetamax*/, ...) {
    if (motion_guard()) return;
}

RtVoid RiTorusV(RtFloat majorrad, RtFloat minorrad, RtFloat phimin, RtFloat phimax,
                RtFloat thetamax, RtInt n, RtToken tokens[], RtPointer params[]) {
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiTorus(majorrad, minorrad, phimin, phimax, thetamax, FIRST_40_WORDS(l));
}
