// Parameter lists: the typed reader for shader, option, attribute and display
// requests, the untyped reader and vertex-count check for primitives, and the
// geometry requests' positional arguments.
#ifndef TRACERY_RIB_PARAMETERS_H
#define TRACERY_RIB_PARAMETERS_H

#include "ri/ri.h"

struct REACTION;

// Capacity of a request's token and value arrays (the terminating null pair
// included). A longer list is read to its end, reported and dropped.
constexpr int RIB_PARAM_MAX = 100;

// Typed list into tokens/values (RIB_PARAM_MAX entries) over the scratch
// buffer; returns the number of pairs, or -1 after a report (drop the request).
int RIBparse_parameter_list(RtToken tokens[], RtPointer values[]);
// Untyped float lists for primitives; n receives the pairs and counts[i] the
// floats of pair i; returns the vertex count implied by P, Pz or Pw (4 when
// none), or -1 after a report.
int RIBparse_read_primvars(int* n, RtToken tokens[], RtPointer values[], int counts[]);
// 0 when the list may be used, 1 when a vector is too short.
int RIBparse_check_primvars(int n, RtToken tokens[], RtPointer values[], int counts[], int nvertex,
                            int nvarying, int nuniform);
void RIB_parse_geometry(const char* keyword, REACTION* row);
void RIBparse_react_complex_geom(const char* keyword, REACTION* row);

// One primitive call as the geometry reader is about to make it, after its
// list has passed the checks. Unused fields are zero.
struct RibGeometryCall {
    const char* keyword;
    const char* type;  // Patch and PatchMesh: the patch type
    // Sizes the list was checked against.
    long long nvertex, nvarying, nuniform;
    // Leading counts: Polygon nverts; GeneralPolygon nloops; PointsPolygons
    // and PointsGeneralPolygons npolys; PatchMesh nu, nv; NuPatch nu, uorder,
    // nv, vorder; TrimCurve nloops.
    int ints[4];
    // Positional floats: the quadrics' arguments, Hyperboloid's point1,
    // point2 and thetamax, Torus's five, NuPatch's umin, umax, vmin, vmax.
    float floats[7];
    int n;
    RtToken* tokens;
    RtPointer* values;
    const int* counts;  // floats read for each pair
};

// Test seam: when set, each accepted primitive call is handed to this
// function instead of the interface procedure.
typedef void (*RibGeometryHook)(const RibGeometryCall& call);
extern RibGeometryHook rib_geometry_hook;

#endif  // TRACERY_RIB_PARAMETERS_H
