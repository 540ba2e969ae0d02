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
int RIBparse_check_primvars(int n, RtToken tokens[], RtPointer values[], int counts[],
                            int nvertex, int nvarying, int nuniform);
void RIB_parse_geometry(const char* keyword, REACTION* row);
void RIBparse_react_complex_geom(const char* keyword, REACTION* row);

#endif  // TRACERY_RIB_PARAMETERS_H
