// Blobby: the implicit surface where the field of its elements, combined by
// its program's operators, equals 0.5. The program is checked and decoded,
// its field sampled on a grid over the bound of its ellipsoids and segment
// blobs (the region where their fields are not zero) with cubic cells, at
// most BLOBBY_CELLS_MAX a side, their number following the relative detail,
// and the 0.5 level set extracted as triangles (preview/isosurface.h). The
// triangles' edges in the grid's planes are drawn (see draw_mesh), and the
// dumps print the triangles: the surface itself, where a blobby was once
// drawn as its bound only.
//
// Instructions the program does not know (plug-in fields, codes of other
// renderers) are reported once per code and stand for no field, so the rest
// still draws; so do repelling planes, whose depth files are not read. A
// program whose field would cost more than the evaluation's bounds is
// reported and drawn as its bound.
#include "preview/blobby.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <set>

#include "preview/bound_box.h"
#include "preview/lattice.h"
#include "preview/wire.h"
#include "ri/ri.h"
#include "ri/transforms.h"
#include "support/error.h"

namespace {

// Floats a leaf reads at its float index.
int leaf_floats(int op) {
    switch (op) {
        case BLOBBY_CONSTANT:
            return 1;
        case BLOBBY_ELLIPSOID:
            return 16;
        case BLOBBY_SEGMENT:
            return 23;
        default:
            // The repelling plane's parameters start there; how many it
            // reads varies between renderers, so only the first is checked.
            return 1;
    }
}

// Fixed operand count of an operator; 0 for those that give their count.
int fixed_operands(int op) {
    if (op == BLOBBY_SUBTRACT || op == BLOBBY_DIVIDE) return 2;
    if (op == BLOBBY_NEGATE || op == BLOBBY_IDENTITY) return 1;
    return 0;
}

bool index_fits(long long index, long long count, long long width) {
    return index >= 0 && index + width <= count;
}

// Decodes one leaf at pc; returns the next pc, or -1 with *why set.
long long decode_leaf(const int code[], long long pc, int ncode, int nflt, int nstr,
                      BlobbyInstruction* ins, const char** why) {
    const int op = code[pc];
    const long long operands = op == BLOBBY_REPELLER ? 2 : 1;
    if (pc + operands >= ncode) {
        *why = "an instruction runs past the end of the code";
        return -1;
    }
    const long long float_index = code[pc + operands];
    if (op == BLOBBY_REPELLER && !index_fits(code[pc + 1], nstr, 1)) {
        *why = "a string index is past the strings";
        return -1;
    }
    if (!index_fits(float_index, nflt, leaf_floats(op))) {
        *why = "a float index is past the floats";
        return -1;
    }
    *ins = {op, int(float_index), op == BLOBBY_REPELLER ? code[pc + 1] : 0};
    return pc + operands + 1;
}

// Decodes an operator (whose operands must name results made so far) or an
// unknown instruction (the code, a count, that many operands of any
// meaning); returns the next pc, or -1 with *why set.
long long decode_counted(const int code[], long long pc, int ncode, long long results,
                         BlobbyInstruction* ins, const char** why) {
    const int op = code[pc];
    const bool known = blobby_is_operator(op);
    long long count = known ? fixed_operands(op) : 0;
    long long first = pc + 1;
    if (count == 0) {
        if (pc + 1 >= ncode || code[pc + 1] < (known ? 1 : 0)) {
            *why = known ? "an operator has no operand count"
                         : "an instruction runs past the end of the code";
            return -1;
        }
        count = code[pc + 1];
        first = pc + 2;
    }
    if (first + count > ncode) {
        *why = "an instruction runs past the end of the code";
        return -1;
    }
    for (long long k = first; known && k < first + count; k++) {
        if (code[k] < 0 || code[k] >= results) {
            *why = "an operand names no earlier result";
            return -1;
        }
    }
    *ins = {op, int(first), int(count)};
    return first + count;
}

void grow_bound(float bound[6], const float p[3]) {
    for (int k = 0; k < 3; k++) {
        bound[2 * k] = std::min(bound[2 * k], p[k]);
        bound[2 * k + 1] = std::max(bound[2 * k + 1], p[k]);
    }
}

// p times the row-vector matrix m (translation in row 3).
void transform_row(const float p[3], const float* m, float out[3]) {
    for (int c = 0; c < 3; c++)
        out[c] = p[0] * m[c] + p[1] * m[4 + c] + p[2] * m[8 + c] + m[12 + c];
}

// The unit sphere through the matrix: half-extent along each axis is the
// length of that column of the upper 3 x 3 part.
void ellipsoid_bound(const float* m, float bound[6]) {
    for (int c = 0; c < 3; c++) {
        const float half = std::sqrt(m[c] * m[c] + m[4 + c] * m[4 + c] + m[8 + c] * m[8 + c]);
        const float low[3] = {c == 0 ? m[12] - half : m[12], c == 1 ? m[13] - half : m[13],
                              c == 2 ? m[14] - half : m[14]};
        const float high[3] = {c == 0 ? m[12] + half : m[12], c == 1 ? m[13] + half : m[13],
                               c == 2 ? m[14] + half : m[14]};
        grow_bound(bound, low);
        grow_bound(bound, high);
    }
}

// A segment blob: endpoints, radius, then its matrix; the corners of the
// box around the capsule go through the matrix.
void segment_bound(const float* f, float bound[6]) {
    const float r = std::fabs(f[6]);
    for (int corner = 0; corner < 8; corner++) {
        float p[3];
        for (int k = 0; k < 3; k++) {
            const float lo = std::min(f[k], f[3 + k]) - r;
            const float hi = std::max(f[k], f[3 + k]) + r;
            p[k] = (corner >> k) & 1 ? hi : lo;
        }
        float out[3];
        transform_row(p, f + 7, out);
        grow_bound(bound, out);
    }
}

// Codes already reported; a few kinds are enough to name.
std::set<int> reported_codes;
constexpr size_t REPORTED_CODES_MAX = 256;

void report_unknown_codes(const std::vector<BlobbyInstruction>& program) {
    for (const BlobbyInstruction& ins : program) {
        if (blobby_is_leaf(ins.code) && ins.code != BLOBBY_REPELLER) continue;
        if (blobby_is_operator(ins.code)) continue;
        if (reported_codes.count(ins.code) || reported_codes.size() >= REPORTED_CODES_MAX) continue;
        reported_codes.insert(ins.code);
        if (ins.code == BLOBBY_REPELLER) {
            QuillError(RIE_UNIMPLEMENT, RIE_WARNING,
                       "Blobby: repelling planes (1003) are left out: their depth files are not "
                       "read");
        } else {
            QuillError(RIE_UNIMPLEMENT, RIE_WARNING,
                       "Blobby: instruction %d is not known; its field is left out", ins.code);
        }
    }
}

// The size of an element's matrix for the grid: the smallest length of a
// row or a column of its 3 x 3 part. For a scale followed by a rotation the
// rows are the ellipsoid's semi-axes, for a rotation followed by a scale the
// columns are; either way the smaller is the thinnest semi-axis.
float matrix_size(const float* m) {
    float size = INFINITY;
    for (int k = 0; k < 3; ++k) {
        const float row = std::sqrt(m[4 * k] * m[4 * k] + m[4 * k + 1] * m[4 * k + 1] +
                                    m[4 * k + 2] * m[4 * k + 2]);
        const float column = std::sqrt(m[k] * m[k] + m[4 + k] * m[4 + k] + m[8 + k] * m[8 + k]);
        size = std::min(size, std::min(row, column));
    }
    return size;
}

// The thinnest ellipsoid or segment blob of the program (0 when a matrix is
// degenerate, infinity when there is none).
float smallest_element(const std::vector<BlobbyInstruction>& program, const float flt[]) {
    float smallest = INFINITY;
    for (const BlobbyInstruction& ins : program) {
        if (ins.code == BLOBBY_ELLIPSOID)
            smallest = std::min(smallest, matrix_size(flt + ins.first));
        if (ins.code == BLOBBY_SEGMENT) {
            const float* f = flt + ins.first;
            smallest = std::min(smallest, std::fabs(f[6]) * matrix_size(f + 7));
        }
    }
    return smallest;
}

// The grid over bound: cubic cells, the longest side cut into the detail's
// number of cells less one on each side, which pads the bound so the
// surface closes inside the grid. So that no element is lost between the
// grid's points, the cells are made no larger than the surface of the
// thinnest element is thick (a lone element's surface lies at 0.454 of its
// size); BLOBBY_CELLS_MAX a side holds both.
bool place_grid(const float bound[6], float smallest, SampledGrid* grid) {
    float longest = 0.0f;
    for (int k = 0; k < 3; ++k) longest = std::max(longest, bound[2 * k + 1] - bound[2 * k]);
    if (!(longest > 0.0f) || !std::isfinite(longest)) return false;
    float cells = float(cells_for_relative_detail(BLOBBY_CELLS_PER_DETAIL));
    const float thickness = BLOBBY_SURFACE_RADIUS * smallest;
    if (thickness > 0.0f) cells = std::max(cells, std::ceil(longest / thickness) + 2.0f);
    const int n = int(std::clamp(cells, 4.0f, float(BLOBBY_CELLS_MAX)));
    grid->cell = longest / float(n - 2);
    for (int k = 0; k < 3; ++k) {
        const float extent = bound[2 * k + 1] - bound[2 * k];
        grid->cells[k] = std::min(n, int(std::ceil(extent / grid->cell)) + 2);
        grid->origin[k] =
            0.5f * (bound[2 * k] + bound[2 * k + 1]) - 0.5f * grid->cell * float(grid->cells[k]);
    }
    return grid->cell > 0.0f && std::isfinite(grid->origin[0] + grid->origin[1] + grid->origin[2]);
}

// Whether two grid edges lie in one plane of the grid (x, y or z fixed): an
// edge of the mesh between points on them is part of the surface's section
// by that plane.
bool in_grid_plane(const SampledGrid& grid, uint64_t e, uint64_t f) {
    const long px = grid.cells[0] + 1L, py = grid.cells[1] + 1L;
    const uint64_t points[4] = {e >> 32, e & 0xffffffffu, f >> 32, f & 0xffffffffu};
    int coordinate[4][3];
    for (int n = 0; n < 4; ++n) {
        const long p = long(points[n]);
        coordinate[n][0] = int(p % px);
        coordinate[n][1] = int((p / px) % py);
        coordinate[n][2] = int(p / (px * py));
    }
    for (int axis = 0; axis < 3; ++axis) {
        bool same = true;
        for (int n = 1; n < 4; ++n) same = same && coordinate[n][axis] == coordinate[0][axis];
        if (same) return true;
    }
    return false;
}

// The dumps print every triangle. The drawing shows the triangles' edges that
// lie in the grid's planes: the sections of the surface by the planes x, y
// and z = constant through the grid points, a lattice like that of the other
// surfaces. The edges inside the cells (across the tetrahedra, toward the
// cells' diagonals) only split those sections into triangles; drawn as well
// they turn the wireframe into a solid tangle, so they are left out.
void draw_mesh(TriangleMesh& mesh, const SampledGrid& grid) {
    const size_t triangles = mesh.triangles.size() / 3;
    if (dumping_surfaces()) {
        for (size_t t = 0; t < triangles; ++t) {
            float corners[9];
            for (int c = 0; c < 3; ++c) {
                const float* p = &mesh.points[3 * size_t(mesh.triangles[3 * t + c])];
                std::copy(p, p + 3, corners + 3 * c);
            }
            dump_object_polygon(corners, 3);
        }
        return;
    }
    std::vector<uint64_t> edges;
    edges.reserve(3 * triangles);
    for (size_t t = 0; t < triangles; ++t) {
        for (int c = 0; c < 3; ++c) {
            const uint32_t a = mesh.triangles[3 * t + c], b = mesh.triangles[3 * t + (c + 1) % 3];
            if (!in_grid_plane(grid, mesh.grid_edges[a], mesh.grid_edges[b])) continue;
            edges.push_back(edge_key(a, b));
        }
    }
    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
    project_points(mesh.points.data(), long(mesh.points.size() / 3));
    draw_projected_edges(mesh.points.data(), edges);
}

void draw_surface(const std::vector<BlobbyInstruction>& program, const int code[],
                  const float flt[], const float bound[6]) {
    SampledGrid grid;
    if (!place_grid(bound, smallest_element(program, flt), &grid)) return;
    if (!sample_blobby_field(program, code, flt, &grid)) {
        QuillError(RIE_LIMIT, RIE_WARNING,
                   "Blobby: its field is too costly to evaluate here; drawn as its bound");
        draw_bound_box(bound);
        return;
    }
    TriangleMesh mesh;
    extract_level_set(grid, BLOBBY_LEVEL, &mesh);
    draw_mesh(mesh, grid);
}

}  // namespace

const char* decode_blobby(int nleaf, int ncode, const int code[], int nflt, int nstr,
                          std::vector<BlobbyInstruction>* program) {
    const char* why = nullptr;
    long long leaves = 0;
    program->clear();
    for (long long pc = 0; pc < ncode;) {
        BlobbyInstruction ins;
        if (blobby_is_leaf(code[pc])) {
            pc = decode_leaf(code, pc, ncode, nflt, nstr, &ins, &why);
            leaves++;
        } else {
            pc = decode_counted(code, pc, ncode, static_cast<long long>(program->size()), &ins,
                                &why);
        }
        if (pc < 0) return why;
        program->push_back(ins);
    }
    if (leaves != nleaf) return "the number of leaves is not nleaf";
    return nullptr;
}

bool blobby_bound(const std::vector<BlobbyInstruction>& program, const float flt[],
                  float bound[6]) {
    for (int k = 0; k < 3; k++) {
        bound[2 * k] = INFINITY;
        bound[2 * k + 1] = -INFINITY;
    }
    bool any = false;
    for (const BlobbyInstruction& ins : program) {
        if (ins.code == BLOBBY_ELLIPSOID) ellipsoid_bound(flt + ins.first, bound);
        if (ins.code == BLOBBY_SEGMENT) segment_bound(flt + ins.first, bound);
        any = any || ins.code == BLOBBY_ELLIPSOID || ins.code == BLOBBY_SEGMENT;
    }
    return any && std::isfinite(bound[0] + bound[1] + bound[2] + bound[3] + bound[4] + bound[5]);
}

void forget_reported_blobby_codes() {
    reported_codes.clear();
}

RtVoid RiBlobbyV(RtInt nleaf, RtInt ncode, RtInt code[], RtInt nflt, RtFloat flt[], RtInt nstr,
                 RtToken[], RtInt, RtToken[], RtPointer[]) {
    if (motion_guard()) return;
    if (ncode < 0 || nflt < 0 || nstr < 0) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR, "Blobby: negative counts");
        return;
    }
    std::vector<BlobbyInstruction> program;
    if (const char* problem = decode_blobby(nleaf, ncode, code, nflt, nstr, &program)) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR, "Blobby: %s", problem);
        return;
    }
    report_unknown_codes(program);
    float bound[6];
    if (blobby_bound(program, flt, bound)) draw_surface(program, code, flt, bound);
}

RtVoid RiBlobby(RtInt nleaf, RtInt ncode, RtInt code[], RtInt nflt, RtFloat flt[], RtInt nstr,
                RtToken str[], ...) {
    va_list ap;
    va_start(ap, str);
    int n = _v_to_array(ap);
    va_end(ap);
    RiBlobbyV(nleaf, ncode, code, nflt, flt, nstr, str, n, _V_names, _V_params);
}
