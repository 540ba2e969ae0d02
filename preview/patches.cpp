// Bilinear and bicubic patches (RiPatch, RiPatchV) and patch meshes
// (RiPatchMesh, RiPatchMeshV), drawn through the shared grid.
//
// A bicubic patch is evaluated through the u and v bases of the graphics
// state on an n x n lattice, n = trunc(4 x relative detail) held to
// 1..GRID_CELLS_MAX; a bilinear patch is its four corners. Some long-standing
// behaviour is kept on purpose: a bilinear "Pw" patch is not divided by w, a
// bilinear "Pz" patch keeps the previous z of its corners, a bicubic patch
// without a position draws nothing while a bilinear one draws whatever the
// grid holds. A mesh is broken into single patches, each drawn by RiPatch.
#include "preview/patches.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <new>
#include <optional>
#include <vector>

#ifdef __SSE2__
#include <xmmintrin.h>
#endif

#include "preview/control_hull.h"
#include "preview/lattice.h"
#include "preview/x11_previewer.h"
#include "preview/variadic_forms.h"
#include "ri/attributes.h"
#include "ri/renderer.h"
#include "ri/ri.h"
#include "ri/transforms.h"
#include "support/error.h"

MeshPlacement mesh_place = {0, 1, 0, 1};

int position_floats(PositionKind kind) {
    switch (kind) {
        case POSITION_P:
            return 3;
        case POSITION_PW:
            return 4;
        case POSITION_PZ:
            return 1;
        default:
            return 0;
    }
}

// An inline declaration ("vertex hpoint Pw") names its parameter last.
PositionKind position_kind(const char* token) {
    if (token == nullptr) return POSITION_NONE;
    if (const char* space = std::strrchr(token, ' ')) token = space + 1;
    if (std::strcmp(token, "P") == 0) return POSITION_P;
    if (std::strcmp(token, "Pw") == 0) return POSITION_PW;
    if (std::strcmp(token, "Pz") == 0) return POSITION_PZ;
    return POSITION_NONE;
}

namespace {

void set_xyz(int row, int column, const float* xyz) {
    for (int k = 0; k < 3; ++k) grid[row][column][k] = xyz[k];
}

// The bilinear height field as it has always been placed: x and y from the
// patch's place in the mesh, z left as the grid held it, heights 1 and 3 in
// the x of column 2 (outside the drawn 1 x 1 lattice), heights 0 and 2 unread.
void fill_bilinear_heights(const float* z) {
    const auto nu = static_cast<float>(mesh_place.nu);
    const auto nv = static_cast<float>(mesh_place.nv);
    const float x0 = mesh_place.iu / nu, x1 = (mesh_place.iu + 1) / nu;
    const float y0 = mesh_place.iv / nv, y1 = (mesh_place.iv + 1) / nv;
    grid[0][0][0] = x0;
    grid[0][0][1] = y0;
    grid[0][1][0] = x1;
    grid[0][1][1] = y0;
    grid[1][0][0] = x0;
    grid[1][0][1] = y1;
    grid[1][1][0] = x1;
    grid[1][1][1] = y1;
    grid[0][2][0] = z[1];
    grid[1][2][0] = z[3];
}

// out[c] = sum over k of in[k] x m[k][c].
void row_times_matrix(const float in[4], const float m[4][4], float out[4]) {
    for (int c = 0; c < 4; ++c) {
        out[c] = in[0] * m[0][c] + in[1] * m[1][c] + in[2] * m[2][c] + in[3] * m[3][c];
    }
}

// The 4 x 4 control points: g[r][c] is control point 4r + c (u varies
// fastest), its x, y, z and w side by side so that the four are blended
// together.
struct Geometry {
    float g[4][4][4];  // [r][c][coordinate]: x, y, z, w
    bool rational;
};

void load_geometry(PatchPositions p, int ustep, int vstep, Geometry* geo) {
    geo->rational = p.kind == POSITION_PW;
    const int stride = position_floats(p.kind);
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) {
            const float* cp = p.values + (4 * r + c) * stride;
            float* out = geo->g[r][c];
            if (p.kind == POSITION_PZ) {
                out[0] = static_cast<float>(mesh_place.iu * ustep + c) /
                         static_cast<float>((mesh_place.nu - 1) * ustep + 4);
                out[1] = static_cast<float>(mesh_place.iv * vstep + r) /
                         static_cast<float>((mesh_place.nv - 1) * vstep + 4);
                out[2] = cp[0];
                out[3] = 1.0f;
            } else {
                for (int k = 0; k < 3; ++k) out[k] = cp[k];
                out[3] = geo->rational ? cp[3] : 1.0f;
            }
        }
    }
}

// The four coordinates of a point, worked on together: four lanes of SSE
// where there is SSE, each lane doing what one coordinate alone would.
#ifdef __SSE2__
using Quad = __m128;
Quad quad_load(const float* p) {
    return _mm_loadu_ps(p);
}
Quad quad_scale(Quad a, float s) {
    return _mm_mul_ps(a, _mm_set1_ps(s));
}
Quad quad_add(Quad a, Quad b) {
    return _mm_add_ps(a, b);
}
void quad_store(Quad a, float* p) {
    _mm_storeu_ps(p, a);
}
#else
struct Quad {
    float v[4];
};
Quad quad_load(const float* p) {
    return {{p[0], p[1], p[2], p[3]}};
}
Quad quad_scale(Quad a, float s) {
    return {{a.v[0] * s, a.v[1] * s, a.v[2] * s, a.v[3] * s}};
}
Quad quad_add(Quad a, Quad b) {
    return {{a.v[0] + b.v[0], a.v[1] + b.v[1], a.v[2] + b.v[2], a.v[3] + b.v[3]}};
}
void quad_store(Quad a, float* p) {
    std::memcpy(p, a.v, sizeof a.v);
}
#endif

// w[0] q[0] + w[1] q[1] + w[2] q[2] + w[3] q[3], added in that order.
Quad weighted_sum(const Quad q[4], const float w[4]) {
    return quad_add(
        quad_add(quad_add(quad_scale(q[0], w[0]), quad_scale(q[1], w[1])), quad_scale(q[2], w[2])),
        quad_scale(q[3], w[3]));
}

// rows[c] = sum over r of b[r] x g[r][c]: the part of the blend shared by
// every point of one lattice row.
void blend_row(const Geometry& geo, const float b[4], Quad rows[4]) {
    for (int c = 0; c < 4; ++c) {
        const Quad column[4] = {quad_load(geo.g[0][c]), quad_load(geo.g[1][c]),
                                quad_load(geo.g[2][c]), quad_load(geo.g[3][c])};
        rows[c] = weighted_sum(column, b);
    }
}

// (t^3, t^2, t, 1) x basis at t = k / n for k in 0..n: the weights of the
// four control rows (or columns) at each lattice row (or column). The last
// weights made for each direction are kept, since a scene draws most of its
// patches with one basis at one detail.
struct BasisWeights {
    float basis[4][4];
    int n = -1;
    float weights[GRID_POINTS][4];
};
BasisWeights u_weights, v_weights;

const BasisWeights& basis_weights(BasisWeights* last, const float basis[4][4], int n) {
    if (last->n == n && std::memcmp(last->basis, basis, sizeof last->basis) == 0) return *last;
    const auto cells = static_cast<float>(n);
    for (int k = 0; k <= n; ++k) {
        const float t = k / cells;
        const float powers[4] = {t * t * t, t * t, t, 1.0f};
        row_times_matrix(powers, basis, last->weights[k]);
    }
    std::memcpy(last->basis, basis, sizeof last->basis);
    last->n = n;
    return *last;
}

}  // namespace

void fill_bilinear_patch(PatchPositions p) {
    switch (p.kind) {
        case POSITION_P:
        case POSITION_PW: {
            const int stride = position_floats(p.kind);
            for (int k = 0; k < 4; ++k) set_xyz(k / 2, k % 2, p.values + k * stride);
            break;
        }
        case POSITION_PZ:
            fill_bilinear_heights(p.values);
            break;
        default:
            break;
    }
}

void fill_bicubic_patch(PatchPositions p, const float ubasis[4][4], const float vbasis[4][4],
                        int ustep, int vstep, int n) {
    Geometry geo;
    load_geometry(p, ustep, vstep, &geo);
    const BasisWeights& a = basis_weights(&u_weights, ubasis, n);
    const BasisWeights& b = basis_weights(&v_weights, vbasis, n);
    for (int j = 0; j <= n; ++j) {
        Quad rows[4];
        blend_row(geo, b.weights[j], rows);
        for (int i = 0; i <= n; ++i) {
            float point[4];
            quad_store(weighted_sum(rows, a.weights[i]), point);
            float* out = grid[j][i];
            if (geo.rational) {
                const float inv_w = 1.0f / point[3];
                for (int k = 0; k < 3; ++k) out[k] = point[k] * inv_w;
            } else {
                for (int k = 0; k < 3; ++k) out[k] = point[k];
            }
        }
    }
}

namespace {

bool is_bilinear(RtToken type) {
    return type != nullptr && std::strcmp(type, "bilinear") == 0;
}

// The last position parameter of a variadic list.
PatchPositions positions_in(va_list ap) {
    PatchPositions found = {POSITION_NONE, nullptr};
    for (;;) {
        const char* token = va_arg(ap, char*);
        if (token == nullptr) break;
        const auto* value = static_cast<const float*>(va_arg(ap, void*));
        const PositionKind kind = position_kind(token);
        if (kind != POSITION_NONE && value != nullptr) found = {kind, value};
    }
    return found;
}

void reset_mesh_place() {
    mesh_place = {0, 1, 0, 1};
}

}  // namespace

RtVoid RiPatch(RtToken type, ...) {
    if (motion_guard()) return;
    va_list ap;
    va_start(ap, type);
    const PatchPositions positions = positions_in(ap);
    va_end(ap);
    if (!lattice_wanted()) {
        reset_mesh_place();
        return;
    }
    if (is_bilinear(type)) {
        fill_bilinear_patch(positions);
        draw_grid(1, 1);
    } else {
        if (positions.kind == POSITION_NONE) return;
        const GState* state = renderer != nullptr ? renderer->gstate : nullptr;
        if (state == nullptr) return;
        const int n = cells_for_relative_detail(4.0f);
        fill_bicubic_patch(positions, state->ubasis, state->vbasis, state->ustep, state->vstep, n);
        draw_grid(n, n);
    }
    reset_mesh_place();
}

namespace {

// Pairs that fit the 40 words handed to the variadic form, with the null pair
// that ends them.
constexpr int VARIADIC_PAIRS_MAX = 19;

}  // namespace

// A longer list would run past the 40 words without its ending null pair, so
// it is cut to the pairs a patch reads: its last 19 position parameters, in
// their order (the last one is the one drawn).
RtVoid RiPatchV(RtToken type, RtInt n, RtToken tokens[], RtPointer params[]) {
    RtToken kept_tokens[VARIADIC_PAIRS_MAX];
    RtPointer kept_params[VARIADIC_PAIRS_MAX];
    if (n > VARIADIC_PAIRS_MAX) {
        int kept = 0;
        for (int i = n - 1; i >= 0 && kept < VARIADIC_PAIRS_MAX; --i) {
            if (position_kind(tokens[i]) == POSITION_NONE) continue;
            kept_tokens[VARIADIC_PAIRS_MAX - 1 - kept] = tokens[i];
            kept_params[VARIADIC_PAIRS_MAX - 1 - kept] = params[i];
            ++kept;
        }
        n = kept;
        tokens = kept_tokens + VARIADIC_PAIRS_MAX - kept;
        params = kept_params + VARIADIC_PAIRS_MAX - kept;
    }
    _array_to_v(n, tokens, params);
    void** l = _array_to_v_list();
    RiPatch(type, FIRST_40_WORDS(l));
}

// ---- Patch meshes ----

namespace {

// Patches along one direction of a mesh of n control points, or -1 when the
// count breaks the rules of its kind: a bilinear direction needs two points;
// a nonperiodic bicubic one needs 4 + k x step points, a periodic one a
// multiple of the step.
int patches_along(bool bicubic, bool periodic, int n, int step) {
    if (!bicubic) {
        if (n < 2) return -1;
        return periodic ? n : n - 1;
    }
    if (step < 1 || n < 1) return -1;
    if (periodic) return n % step == 0 ? n / step : -1;
    if (n < 4 || (n - 4) % step != 0) return -1;
    return (n - 4) / step + 1;
}

void report_mesh_count(const char* direction, int n, bool bicubic, bool periodic, int step) {
    const char* wrap = periodic ? "periodic" : "nonperiodic";
    if (bicubic) {
        QuillError(RIE_CONSISTENCY, RIE_ERROR,
                   "PatchMesh: %s %d does not make whole %s bicubic patches with step %d",
                   direction, n, wrap, step);
    } else {
        QuillError(RIE_CONSISTENCY, RIE_ERROR,
                   "PatchMesh: %s %d does not make whole %s bilinear patches", direction, n, wrap);
    }
}

bool is_periodic(RtToken wrap) {
    return wrap != nullptr && std::strcmp(wrap, "periodic") == 0;
}

// One direction of a mesh: control points, patches, step between patches
// and the control points of one patch.
struct MeshDirection {
    int points;
    int patches;
    int step;
    int order;
};

// index modulo points, for an index a few times points at most: patches
// past the end of a periodic mesh take their last points from its start.
// Subtracting spares a division for each of the sixteen control points of
// each patch.
int wrapped(int index, int points) {
    while (index >= points) index -= points;
    return index;
}

// Copies the control points of patch (pu, pv) into out, u fastest.
void gather_patch(const float* values, int stride, const MeshDirection& u, const MeshDirection& v,
                  int pu, int pv, float* out) {
    for (int r = 0; r < v.order; ++r) {
        const int row = wrapped(pv * v.step + r, v.points);
        for (int c = 0; c < u.order; ++c) {
            const int column = wrapped(pu * u.step + c, u.points);
            const float* src = values + (static_cast<long long>(row) * u.points + column) * stride;
            std::memcpy(out, src, sizeof(float) * stride);
            out += stride;
        }
    }
}

// ---- Patches known drawn before they are made ----

// A blend of four terms in single precision is within a little over 4 unit
// roundoffs of the sum of its terms' magnitudes; a lattice point is a blend
// of blends.
constexpr double BLEND_ROUNDINGS = 10.0;
// A basis whose lattice points stray further than this from the hull of
// their control points (one with negative weights, as Catmull-Rom's) gives
// boxes too loose to help, and is not tried.
constexpr double HULL_EXCESS_MAX = 1e-4;
// Larger meshes are drawn patch by patch without asking: the extents of
// all control points are held at once.
constexpr size_t HULL_POINTS_MAX = size_t(1) << 16;

double blend_hull_excess(const BasisWeights& u, const BasisWeights& v, int n) {
    double excess = 0.0;
    for (int j = 0; j <= n; ++j) {
        for (int i = 0; i <= n; ++i) {
            double positive = 0.0, negative = 0.0;
            for (int r = 0; r < 4; ++r) {
                for (int c = 0; c < 4; ++c) {
                    const double w = double(v.weights[j][r]) * double(u.weights[i][c]);
                    (w < 0.0 ? negative : positive) += std::fabs(w);
                }
            }
            const double sum = positive + negative;
            excess = std::max(
                excess, std::fabs(positive - 1.0) + negative + BLEND_ROUNDINGS * FLOAT_UNIT * sum);
        }
    }
    return excess;
}

// The control points of a "P" bicubic mesh projected once, so that the
// whole mesh, and then each of its patches, can be asked whether the box of
// its control points' hull (ControlHull) is already drawn before any
// lattice is made. For each row of patches the extents of its four control
// rows are folded into one extent per control column, which the patches of
// that row share.
class MeshHull {
  public:
    // Prepares for a mesh; whether its patches can be asked at all.
    bool start(PatchPositions p, const MeshDirection& u, const MeshDirection& v,
               const GState& state, int n) {
        hull_.reset();
        X11VectorPreviewer* drawer = previewer();
        const size_t count = size_t(u.points) * size_t(v.points);
        if (p.kind != POSITION_P || u.order != 4 || v.order != 4 || drawer == nullptr ||
            !drawer->lattices_only_drawn() || count > HULL_POINTS_MAX) {
            return false;
        }
        const double excess = bicubic_hull_excess(state.ubasis, state.vbasis, n);
        if (!(excess <= HULL_EXCESS_MAX)) return false;
        u_ = u;
        v_ = v;
        try {
            points_.resize(count);
            columns_.resize(size_t(u.points));
        } catch (const std::bad_alloc&) {
            return false;  // the patches are drawn as they come
        }
        hull_.emplace(ScreenProjection(), excess);
        whole_ = hull_->extents(p.values, count, points_.data());
        return true;
    }

    // Whether every patch of the mesh is known drawn; when so the drawer
    // has ended each as an object.
    bool all_known_drawn() const {
        RasterBox box;
        return hull_->raster_box(whole_, &box) &&
               previewer()->lattices_known_drawn(box, size_t(u_.patches) * size_t(v_.patches));
    }

    // Makes the column extents of patch row pv.
    void fold_band(int pv) {
        for (auto& column : columns_) column = ControlHull::Extent();
        for (int r = 0; r < 4; ++r) {
            const size_t row = size_t(wrapped(pv * v_.step + r, v_.points));
            const ControlHull::Extent* point = points_.data() + row * size_t(u_.points);
            for (auto& column : columns_) column.add(*point++);
        }
    }

    // Whether patch pu of the row folded last is known drawn; when so the
    // drawer has ended it as an object.
    bool patch_known_drawn(int pu) const {
        ControlHull::Extent extent;
        for (int c = 0; c < 4; ++c) {
            extent.add(columns_[size_t(wrapped(pu * u_.step + c, u_.points))]);
        }
        RasterBox box;
        return hull_->raster_box(extent, &box) && previewer()->lattices_known_drawn(box, 1);
    }

  private:
    MeshDirection u_{}, v_{};
    std::optional<ControlHull> hull_;
    std::vector<ControlHull::Extent> points_, columns_;
    ControlHull::Extent whole_;
};

void draw_mesh_patches(RtToken type, RtToken position_token, PatchPositions p,
                       const MeshDirection& u, const MeshDirection& v) {
    float points[16 * 4];
    const int stride = position_floats(p.kind);
    const int saved_motion = motion_level;
    const GState* state = renderer != nullptr ? renderer->gstate : nullptr;
    // Kept from mesh to mesh, with the room it has made.
    static MeshHull mesh_hull;
    const bool hull = !is_bilinear(type) && state != nullptr &&
                      mesh_hull.start(p, u, v, *state, cells_for_relative_detail(4.0f));
    if (hull && mesh_hull.all_known_drawn()) return;
    for (int pv = 0; pv < v.patches; ++pv) {
        if (hull) mesh_hull.fold_band(pv);
        for (int pu = 0; pu < u.patches; ++pu) {
            if (hull && mesh_hull.patch_known_drawn(pu)) continue;
            gather_patch(p.values, stride, u, v, pu, pv, points);
            mesh_place = {pu, u.patches, pv, v.patches};
            motion_level = 0;
            RiPatch(type, position_token, static_cast<RtPointer>(points), RI_NULL);
            motion_level = saved_motion;
        }
    }
    reset_mesh_place();
}

}  // namespace

// Weights that are negative or do not sum to exactly 1, and the rounding of
// the two blends (rows, then columns). The last answer is kept, since a
// scene draws most of its meshes with one basis at one detail.
double bicubic_hull_excess(const float ubasis[4][4], const float vbasis[4][4], int n) {
    static struct {
        float ubasis[4][4], vbasis[4][4];
        int n = -1;
        double excess;
    } last;
    if (last.n == n && std::memcmp(last.ubasis, ubasis, sizeof last.ubasis) == 0 &&
        std::memcmp(last.vbasis, vbasis, sizeof last.vbasis) == 0) {
        return last.excess;
    }
    last.excess = blend_hull_excess(basis_weights(&u_weights, ubasis, n),
                                    basis_weights(&v_weights, vbasis, n), n);
    std::memcpy(last.ubasis, ubasis, sizeof last.ubasis);
    std::memcpy(last.vbasis, vbasis, sizeof last.vbasis);
    last.n = n;
    return last.excess;
}

RtVoid RiPatchMeshV(RtToken type, RtInt nu, RtToken uwrap, RtInt nv, RtToken vwrap, RtInt n,
                    RtToken tokens[], RtPointer params[]) {
    if (motion_guard()) return;
    PatchPositions positions = {POSITION_NONE, nullptr};
    RtToken position_token = nullptr;
    for (int k = 0; k < n; ++k) {
        const PositionKind kind = position_kind(tokens[k]);
        if (kind == POSITION_NONE || params[k] == nullptr) continue;
        positions = {kind, static_cast<const float*>(params[k])};
        position_token = tokens[k];
    }
    if (positions.kind == POSITION_NONE) {
        RMError(RIE_MISSINGDATA, RIE_ERROR, "No \"P\" list found");
        return;
    }
    const bool bicubic = !is_bilinear(type);
    const GState* state = renderer != nullptr ? renderer->gstate : nullptr;
    const int ustep = bicubic ? (state != nullptr ? state->ustep : RI_BEZIERSTEP) : 1;
    const int vstep = bicubic ? (state != nullptr ? state->vstep : RI_BEZIERSTEP) : 1;
    const int order = bicubic ? 4 : 2;
    const MeshDirection u = {nu, patches_along(bicubic, is_periodic(uwrap), nu, ustep), ustep,
                             order};
    const MeshDirection v = {nv, patches_along(bicubic, is_periodic(vwrap), nv, vstep), vstep,
                             order};
    if (u.patches < 0) report_mesh_count("nu", nu, bicubic, is_periodic(uwrap), ustep);
    if (v.patches < 0) report_mesh_count("nv", nv, bicubic, is_periodic(vwrap), vstep);
    if (u.patches < 0 || v.patches < 0) return;
    draw_mesh_patches(type, position_token, positions, u, v);
}

RtVoid RiPatchMesh(RtToken type, RtInt nu, RtToken uwrap, RtInt nv, RtToken vwrap, ...) {
    va_list ap;
    va_start(ap, vwrap);
    int n = _v_to_array(ap);
    va_end(ap);
    RiPatchMeshV(type, nu, uwrap, nv, vwrap, n, _V_names, _V_params);
}
