// Subdivision meshes (SubdivisionMesh and HierarchicalSubdivisionMesh): the
// topology and tags are checked here before OpenSubdiv sees them, since the
// library reports bad topology by printing or failing; a mesh that passes is
// refined uniformly on the CPU (Far::TopologyRefiner, Far::PrimvarRefiner) to
// a level that follows the relative detail. The refined mesh's edges are
// drawn, each edge once (shared edges are not drawn twice, and each refined
// point is projected once); under the dump options each refined face is
// printed as a world-space polygon. A mesh that does not fit is reported and
// its control cage is drawn (or dumped) instead.
#include "preview/subdivision.h"

#include <opensubdiv/far/error.h>
#include <opensubdiv/far/primvarRefiner.h>
#include <opensubdiv/far/topologyDescriptor.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <unordered_set>

#include "preview/wire.h"
#include "preview/x11_previewer.h"
#include "ri/transforms.h"
#include "support/error.h"

using namespace OpenSubdiv;

int subdivision_level(int detail, long long faces_first_level) {
    int level = 0;
    for (int d = detail; d >= 4; d /= 2) level++;
    long long faces = std::max(faces_first_level, 1LL);
    for (int l = 1; l < level; l++) faces *= 4;
    while (level > 0 && faces > SUBDIVISION_FACES_MAX) {
        level--;
        faces /= 4;
    }
    return level;
}

namespace {

// The tags of a mesh in the form the refiner takes them.
struct MeshTags {
    std::vector<int> crease_pairs;
    std::vector<float> crease_weights;
    std::vector<int> corners;
    std::vector<float> corner_weights;
    std::vector<int> holes;
    Sdc::Options::VtxBoundaryInterpolation boundary = Sdc::Options::VTX_BOUNDARY_NONE;
};

// A check that failed: why, for the report.
struct Problem {
    char text[160] = "";
    bool found() const { return text[0] != '\0'; }
};

void set_problem(Problem* p, const char* format, ...) __attribute__((format(printf, 2, 3)));
void set_problem(Problem* p, const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::vsnprintf(p->text, sizeof p->text, format, ap);
    va_end(ap);
}

bool scheme_known(const char* scheme) {
    return scheme != nullptr &&
           (std::strcmp(scheme, "catmull-clark") == 0 || std::strcmp(scheme, "loop") == 0 ||
            std::strcmp(scheme, "bilinear") == 0);
}

// Most vertices of a face and faces around a vertex handed to the library:
// it refuses more than 65535, and builds its topology in a time that grows
// with the square of a vertex's faces.
constexpr int VALENCE_MAX = 4096;

// A vertex named twice among the n of a face, or -1.
int repeated_vertex(const int* v, int n) {
    std::vector<int> sorted(v, v + n);
    std::sort(sorted.begin(), sorted.end());
    const auto twice = std::adjacent_find(sorted.begin(), sorted.end());
    return twice == sorted.end() ? -1 : *twice;
}

// No vertex is shared by more than VALENCE_MAX faces (the indices fit).
void check_valences(const SubdivisionInput& m, Problem* problem) {
    std::vector<int> faces_around(size_t(m.npoints), 0);
    const int* v = m.vertices;
    for (int f = 0; f < m.nfaces; v += m.nvertices[f], f++) {
        for (int k = 0; k < m.nvertices[f]; k++) {
            if (++faces_around[size_t(v[k])] > VALENCE_MAX) {
                set_problem(problem, "vertex %d is shared by more than %d faces", v[k],
                            VALENCE_MAX);
                return;
            }
        }
    }
}

// Faces have three vertices at least (exactly three under "loop"), each an
// index into P, none twice.
void check_faces(const SubdivisionInput& m, Problem* problem) {
    const bool loop = std::strcmp(m.scheme, "loop") == 0;
    const int* v = m.vertices;
    for (int f = 0; f < m.nfaces && !problem->found(); v += m.nvertices[f], f++) {
        const int n = m.nvertices[f];
        if (n < 3 || (loop && n != 3) || n > VALENCE_MAX) {
            set_problem(problem, "face %d has %d vertices", f, n);
            return;
        }
        for (int k = 0; k < n; k++) {
            if (v[k] < 0 || v[k] >= m.npoints) {
                set_problem(problem, "vertex index %d of face %d is not one of the %d points of P",
                            v[k], f, m.npoints);
                return;
            }
        }
        const int repeated = repeated_vertex(v, n);
        if (repeated >= 0) {
            set_problem(problem, "face %d uses vertex %d twice", f, repeated);
            return;
        }
    }
    if (!problem->found()) check_valences(m, problem);
}

std::unordered_set<uint64_t> mesh_edges(const SubdivisionInput& m) {
    std::unordered_set<uint64_t> edges;
    const int* v = m.vertices;
    for (int f = 0; f < m.nfaces; v += m.nvertices[f], f++) {
        const int n = m.nvertices[f];
        for (int k = 0; k < n; k++)
            edges.insert(edge_key(uint32_t(v[k]), uint32_t(v[(k + 1) % n])));
    }
    return edges;
}

// One tag with its arguments; false with the problem set when they do not fit.
// The mesh's edges, made at the first crease that needs them.
struct EdgeSet {
    const SubdivisionInput& mesh;
    std::unique_ptr<std::unordered_set<uint64_t>> edges;
    bool has(int a, int b) {
        if (edges == nullptr) edges.reset(new std::unordered_set<uint64_t>(mesh_edges(mesh)));
        return a >= 0 && b >= 0 && edges->count(edge_key(uint32_t(a), uint32_t(b))) != 0;
    }
};

bool read_tag(const SubdivisionInput& m, const char* tag, int nint, int nfloat, const int* ints,
              const float* floats, EdgeSet& edges, MeshTags* out, Problem* problem) {
    if (std::strcmp(tag, "hole") == 0) {
        for (int k = 0; k < nint; k++) {
            if (ints[k] < 0 || ints[k] >= m.nfaces) {
                set_problem(problem, "hole names face %d of %d", ints[k], m.nfaces);
                return false;
            }
            out->holes.push_back(ints[k]);
        }
        return nfloat == 0 || (set_problem(problem, "hole takes no floats"), false);
    }
    if (std::strcmp(tag, "crease") == 0) {
        if (nint < 2 || nfloat != 1) {
            set_problem(problem, "crease needs two vertices or more and one sharpness");
            return false;
        }
        for (int k = 0; k + 1 < nint; k++) {
            if (!edges.has(ints[k], ints[k + 1])) {
                set_problem(problem, "crease %d-%d is not an edge of the mesh", ints[k],
                            ints[k + 1]);
                return false;
            }
            out->crease_pairs.insert(out->crease_pairs.end(), {ints[k], ints[k + 1]});
            out->crease_weights.push_back(floats[0]);
        }
        return true;
    }
    if (std::strcmp(tag, "corner") == 0) {
        if (nint < 1 || (nfloat != 1 && nfloat != nint)) {
            set_problem(problem, "corner needs vertices and one sharpness or one for each");
            return false;
        }
        for (int k = 0; k < nint; k++) {
            if (ints[k] < 0 || ints[k] >= m.npoints) {
                set_problem(problem, "corner names vertex %d of %d", ints[k], m.npoints);
                return false;
            }
            out->corners.push_back(ints[k]);
            out->corner_weights.push_back(floats[nfloat == 1 ? 0 : k]);
        }
        return true;
    }
    if (std::strcmp(tag, "interpolateboundary") == 0) {
        const int mode = nint > 0 ? ints[0] : 1;
        if (nint > 1 || nfloat != 0 || mode < 0 || mode > 2) {
            set_problem(problem, "interpolateboundary takes one integer, 0, 1 or 2");
            return false;
        }
        out->boundary = mode == 0   ? Sdc::Options::VTX_BOUNDARY_NONE
                        : mode == 1 ? Sdc::Options::VTX_BOUNDARY_EDGE_AND_CORNER
                                    : Sdc::Options::VTX_BOUNDARY_EDGE_ONLY;
        return true;
    }
    // Tags of face-varying data change nothing that is drawn.
    if (std::strncmp(tag, "facevarying", 11) != 0) {
        QuillError(RIE_BADTOKEN, RIE_WARNING, "%s: unknown tag \"%s\" ignored", m.request, tag);
    }
    return true;
}

void read_tags(const SubdivisionInput& m, MeshTags* out, Problem* problem) {
    const int* ints = m.intargs;
    const float* floats = m.floatargs;
    EdgeSet edges{m, nullptr};
    for (int t = 0; t < m.ntags; t++) {
        const int nint = m.nargs[m.counts_per_tag * t];
        const int nfloat = m.nargs[m.counts_per_tag * t + 1];
        const char* tag = m.tags[t] != nullptr ? m.tags[t] : "";
        if (nint < 0 || nfloat < 0) {
            set_problem(problem, "tag \"%s\" has negative counts", tag);
            return;
        }
        if (!read_tag(m, tag, nint, nfloat, ints, floats, edges, out, problem)) return;
        ints += nint;
        floats += nfloat;
    }
}

long long faces_after_one_level(const SubdivisionInput& m) {
    if (std::strcmp(m.scheme, "loop") == 0) return 4LL * m.nfaces;
    long long faces = 0;
    for (int f = 0; f < m.nfaces; f++) faces += m.nvertices[f];
    return faces;
}

// The cage: every face whose indices fit.
void control_cage(const SubdivisionInput& m, const std::vector<bool>* holes, RefinedMesh* out) {
    out->points.assign(m.P, m.P + 3 * size_t(std::max(m.npoints, 0)));
    const int* v = m.vertices;
    for (int f = 0; f < m.nfaces; v += m.nvertices[f], f++) {
        const int n = m.nvertices[f];
        if (n < 0) break;  // the faces after it cannot be placed
        bool fits = n >= 1 && (holes == nullptr || !(*holes)[size_t(f)]);
        for (int k = 0; k < n && fits; k++) fits = v[k] >= 0 && v[k] < m.npoints;
        if (!fits) continue;
        out->face_sizes.push_back(n);
        out->face_vertices.insert(out->face_vertices.end(), v, v + n);
    }
}

// A refined point, as Far::PrimvarRefiner interpolates it.
struct RefinedPoint {
    float p[3];
    void Clear(void* = nullptr) { p[0] = p[1] = p[2] = 0.0f; }
    void AddWithWeight(const RefinedPoint& src, float weight) {
        for (int k = 0; k < 3; k++) p[k] += weight * src.p[k];
    }
};

// The library's own reports during one refinement.
std::string refiner_failure;
void note_refiner_error(Far::ErrorType, const char* message) {
    if (refiner_failure.empty()) refiner_failure = message != nullptr ? message : "error";
}
void ignore_refiner_warning(const char*) {}

Sdc::SchemeType scheme_type(const char* scheme) {
    if (std::strcmp(scheme, "loop") == 0) return Sdc::SCHEME_LOOP;
    if (std::strcmp(scheme, "bilinear") == 0) return Sdc::SCHEME_BILINEAR;
    return Sdc::SCHEME_CATMARK;
}

std::unique_ptr<Far::TopologyRefiner> make_refiner(const SubdivisionInput& m, const MeshTags& t) {
    Far::TopologyDescriptor desc;
    desc.numVertices = m.npoints;
    desc.numFaces = m.nfaces;
    desc.numVertsPerFace = m.nvertices;
    desc.vertIndicesPerFace = m.vertices;
    desc.numCreases = int(t.crease_weights.size());
    desc.creaseVertexIndexPairs = t.crease_pairs.data();
    desc.creaseWeights = t.crease_weights.data();
    desc.numCorners = int(t.corners.size());
    desc.cornerVertexIndices = t.corners.data();
    desc.cornerWeights = t.corner_weights.data();
    desc.numHoles = int(t.holes.size());
    desc.holeIndices = t.holes.data();
    Sdc::Options options;
    options.SetVtxBoundaryInterpolation(t.boundary);
    typedef Far::TopologyRefinerFactory<Far::TopologyDescriptor> Factory;
    return std::unique_ptr<Far::TopologyRefiner>(
        Factory::Create(desc, Factory::Options(scheme_type(m.scheme), options)));
}

// Whether each face of the last level descends from a face tagged as a
// hole. The library also leaves out the boundary faces of a mesh without
// boundary interpolation, as a renderer does; a wireframe shows them, since
// an open mesh without the tag would otherwise show nothing.
std::vector<char> refined_holes(const Far::TopologyRefiner& refiner,
                                const Far::PrimvarRefiner& primvars, const MeshTags& tags,
                                int level) {
    std::vector<char> holes(size_t(refiner.GetLevel(0).GetNumFaces()), 0);
    for (int h : tags.holes) holes[size_t(h)] = 1;
    for (int l = 1; l <= level; l++) {
        std::vector<char> children(size_t(refiner.GetLevel(l).GetNumFaces()), 0);
        primvars.InterpolateFaceUniform(l, holes, children);
        holes.swap(children);
    }
    return holes;
}

// Refines to level (at least 1) and copies the last level's faces that are
// not holes into out; false when the library failed.
bool refine(const SubdivisionInput& m, const MeshTags& tags, int level, RefinedMesh* out) {
    refiner_failure.clear();
    Far::SetErrorCallback(note_refiner_error);
    Far::SetWarningCallback(ignore_refiner_warning);
    std::unique_ptr<Far::TopologyRefiner> refiner = make_refiner(m, tags);
    if (refiner == nullptr || !refiner_failure.empty()) return false;
    refiner->RefineUniform(Far::TopologyRefiner::UniformOptions(level));
    if (!refiner_failure.empty()) return false;
    std::vector<RefinedPoint> points(size_t(refiner->GetNumVerticesTotal()));
    for (int i = 0; i < m.npoints; i++) std::copy(m.P + 3 * i, m.P + 3 * i + 3, points[i].p);
    Far::PrimvarRefiner primvars(*refiner);
    RefinedPoint* src = points.data();
    for (int l = 1; l <= level; l++) {
        RefinedPoint* dst = src + refiner->GetLevel(l - 1).GetNumVertices();
        primvars.Interpolate(l, src, dst);
        src = dst;
    }
    const std::vector<char> holes = refined_holes(*refiner, primvars, tags, level);
    const Far::TopologyLevel& last = refiner->GetLevel(level);
    for (int i = 0; i < last.GetNumVertices(); i++) {
        out->points.insert(out->points.end(), src[i].p, src[i].p + 3);
    }
    for (int f = 0; f < last.GetNumFaces(); f++) {
        if (holes[size_t(f)]) continue;
        const Far::ConstIndexArray face = last.GetFaceVertices(f);
        out->face_sizes.push_back(face.size());
        out->face_vertices.insert(out->face_vertices.end(), face.begin(), face.end());
    }
    return true;
}

// Reports why the mesh is drawn as its control cage, and what of the cage
// is drawn: a face whose indices do not fit the points cannot be.
void report_cage(const SubdivisionInput& m, const char* why, const RefinedMesh& cage) {
    const long long drawn = static_cast<long long>(cage.face_sizes.size());
    const long long left_out = std::max<long long>(m.nfaces - drawn, 0);
    if (drawn == 0 && left_out > 0) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR,
                   "%s: %s; nothing drawn: no face of its control cage fits", m.request, why);
    } else if (left_out > 0) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR,
                   "%s: %s; drawn as its control cage, %lld of its %d faces left out", m.request,
                   why, left_out, m.nfaces);
    } else {
        QuillError(RIE_CONSISTENCY, RIE_ERROR, "%s: %s; drawn as its control cage", m.request, why);
    }
}

}  // namespace

void refine_subdivision_mesh(const SubdivisionInput& m, int detail, RefinedMesh* out) {
    *out = RefinedMesh();
    Problem problem;
    MeshTags tags;
    if (!scheme_known(m.scheme)) {
        set_problem(&problem, "unknown scheme \"%s\"", m.scheme ? m.scheme : "");
    } else {
        check_faces(m, &problem);
    }
    if (!problem.found() && !m.cage_only) read_tags(m, &tags, &problem);
    if (problem.found() || m.cage_only) {
        control_cage(m, nullptr, out);
        if (problem.found()) report_cage(m, problem.text, *out);
        return;
    }
    const int level = subdivision_level(detail, faces_after_one_level(m));
    if (level > 0 && m.nfaces > 0) {
        bool refined = false;
        try {
            refined = refine(m, tags, level, out);
        } catch (...) {
            refiner_failure = "no memory";
        }
        if (refined) return;
        *out = RefinedMesh();
        set_problem(&problem, "refinement failed (%s)", refiner_failure.c_str());
        control_cage(m, nullptr, out);
        report_cage(m, problem.text, *out);
        return;
    }
    std::vector<bool> holes(size_t(m.nfaces), false);
    for (int h : tags.holes) holes[size_t(h)] = true;
    control_cage(m, &holes, out);
}

namespace {

void dump_mesh(const RefinedMesh& mesh) {
    const int* v = mesh.face_vertices.data();
    std::vector<float> corners;
    for (int n : mesh.face_sizes) {
        corners.clear();
        for (int k = 0; k < n; k++) {
            const float* p = &mesh.points[3 * size_t(v[k])];
            corners.insert(corners.end(), p, p + 3);
        }
        dump_object_polygon(corners.data(), n);
        v += n;
    }
}

void draw_mesh(RefinedMesh& mesh) {
    std::vector<uint64_t> edges;
    const int* v = mesh.face_vertices.data();
    for (int n : mesh.face_sizes) {
        for (int k = 0; k < n; k++)
            edges.push_back(edge_key(uint32_t(v[k]), uint32_t(v[(k + 1) % n])));
        v += n;
    }
    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
    project_points(mesh.points.data(), long(mesh.points.size() / 3));
    draw_projected_edges(mesh.points.data(), edges);
}

}  // namespace

void subdivision_mesh_request(const SubdivisionInput& mesh) {
    if (motion_guard()) return;
    if (mesh.P == nullptr) {
        RMError(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found");
        return;
    }
    RefinedMesh refined;
    try {
        refine_subdivision_mesh(mesh, detail_level, &refined);
        if (dumping_surfaces()) {
            dump_mesh(refined);
        } else {
            draw_mesh(refined);
        }
    } catch (...) {
        QuillError(RIE_NOMEM, RIE_ERROR, "%s: out of memory", mesh.request);
    }
}

namespace {

// The last "P" of a list.
const float* find_P(RtInt n, RtToken tokens[], RtPointer params[]) {
    const float* P = nullptr;
    for (int i = 0; i < n; i++) {
        if (tokens[i] != nullptr && std::strcmp(tokens[i], "P") == 0) {
            P = static_cast<const float*>(params[i]);
        }
    }
    return P;
}

// A client of the interface gives P without its length, which the
// standard defines as the highest index + 1.
int points_indexed(RtInt nfaces, const RtInt nvertices[], const RtInt vertices[]) {
    long long total = 0;
    for (int f = 0; f < nfaces; f++) total += std::max(nvertices[f], 0);
    int highest = -1;
    for (long long i = 0; i < total; i++) highest = std::max(highest, vertices[i]);
    return highest + 1;
}

}  // namespace

namespace {

// Both mesh requests in their array form; the hierarchical one gives three
// counts a tag (integers, floats, strings) where the other gives two.
void mesh_request(const char* request, int counts_per_tag, RtToken scheme, RtInt nfaces,
                  RtInt nvertices[], RtInt vertices[], RtInt ntags, RtToken tags[], RtInt nargs[],
                  RtInt intargs[], RtFloat floatargs[], RtInt n, RtToken tokens[],
                  RtPointer params[]) {
    const SubdivisionInput mesh = {request,
                                   scheme,
                                   std::max(nfaces, 0),
                                   nvertices,
                                   vertices,
                                   std::max(ntags, 0),
                                   tags,
                                   nargs,
                                   counts_per_tag,
                                   intargs,
                                   floatargs,
                                   find_P(n, tokens, params),
                                   points_indexed(nfaces, nvertices, vertices),
                                   false};
    subdivision_mesh_request(mesh);
}

}  // namespace

RtVoid RiHierarchicalSubdivisionMeshV(RtToken scheme, RtInt nfaces, RtInt nvertices[],
                                      RtInt vertices[], RtInt ntags, RtToken tags[], RtInt nargs[],
                                      RtInt intargs[], RtFloat floatargs[], RtToken[], RtInt n,
                                      RtToken tokens[], RtPointer params[]) {
    mesh_request("HierarchicalSubdivisionMesh", 3, scheme, nfaces, nvertices, vertices, ntags, tags,
                 nargs, intargs, floatargs, n, tokens, params);
}

RtVoid RiHierarchicalSubdivisionMesh(RtToken scheme, RtInt nfaces, RtInt nvertices[],
                                     RtInt vertices[], RtInt ntags, RtToken tags[], RtInt nargs[],
                                     RtInt intargs[], RtFloat floatargs[], RtToken stringargs[],
                                     ...) {
    va_list ap;
    va_start(ap, stringargs);
    int n = _v_to_array(ap);
    va_end(ap);
    RiHierarchicalSubdivisionMeshV(scheme, nfaces, nvertices, vertices, ntags, tags, nargs, intargs,
                                   floatargs, stringargs, n, _V_names, _V_params);
}

RtVoid RiSubdivisionMeshV(RtToken scheme, RtInt nfaces, RtInt nvertices[], RtInt vertices[],
                          RtInt ntags, RtToken tags[], RtInt nargs[], RtInt intargs[],
                          RtFloat floatargs[], RtInt n, RtToken tokens[], RtPointer params[]) {
    mesh_request("SubdivisionMesh", 2, scheme, nfaces, nvertices, vertices, ntags, tags, nargs,
                 intargs, floatargs, n, tokens, params);
}

RtVoid RiSubdivisionMesh(RtToken scheme, RtInt nfaces, RtInt nvertices[], RtInt vertices[],
                         RtInt ntags, RtToken tags[], RtInt nargs[], RtInt intargs[],
                         RtFloat floatargs[], ...) {
    va_list ap;
    va_start(ap, floatargs);
    int n = _v_to_array(ap);
    va_end(ap);
    RiSubdivisionMeshV(scheme, nfaces, nvertices, vertices, ntags, tags, nargs, intargs, floatargs,
                       n, _V_names, _V_params);
}
