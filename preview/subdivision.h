// Subdivision meshes: the check of their topology and tags, their refinement
// with OpenSubdiv, and their drawing (refined edges) or dumping (refined
// faces as world-space polygons).
#ifndef TRACERY_PREVIEW_SUBDIVISION_H
#define TRACERY_PREVIEW_SUBDIVISION_H

#include <string>
#include <vector>

#include "ri/ri.h"

// One SubdivisionMesh or HierarchicalSubdivisionMesh request.
struct SubdivisionInput {
    const char* request;  // the request's name, for reports
    const char* scheme;
    int nfaces;
    const int* nvertices;  // per face
    const int* vertices;   // sum(nvertices) indices into P
    int ntags;
    const RtToken* tags;
    const int* nargs;    // per tag: integers, floats (and strings when hierarchical)
    int counts_per_tag;  // 2, or 3 for the hierarchical request
    const int* intargs;
    const float* floatargs;
    const float* P;  // npoints points, three floats each
    int npoints;
    bool cage_only;  // the tags were found unusable (and reported) already
};

// Refinement level for a detail level: none below the default detail (4),
// one at the default, one more for each doubling of the detail; then
// lowered until the refined mesh holds at most SUBDIVISION_FACES_MAX faces,
// faces_first_level being the face count after one level.
constexpr long long SUBDIVISION_FACES_MAX = 1 << 18;
int subdivision_level(int detail, long long faces_first_level);

// A refined (or unrefined) mesh: points and faces as index loops.
struct RefinedMesh {
    std::vector<float> points;  // x, y, z
    std::vector<int> face_sizes;
    std::vector<int> face_vertices;
};

// Checks the mesh and refines it to the level of the detail, leaving out the
// faces tagged as holes. On a problem it reports it and gives the control
// cage instead: every face whose indices fit, the tags ignored.
void refine_subdivision_mesh(const SubdivisionInput& mesh, int detail, RefinedMesh* out);

// The request itself after the motion guard: draws the refined edges, each
// once, or under the dump options prints the refined faces.
void subdivision_mesh_request(const SubdivisionInput& mesh);

#endif  // TRACERY_PREVIEW_SUBDIVISION_H
