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

#include <cstdarg>
#include <cstring>

#include "preview/lattice.h"
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

// The 4 x 4 control values of one coordinate: g[r][c] from control point
// 4r + c (u varies fastest).
struct Geometry {
    float g[4][4][4];  // [coordinate][r][c]: x, y, z, w
    bool rational;
};

void load_geometry(PatchPositions p, int ustep, int vstep, Geometry* geo) {
    geo->rational = p.kind == POSITION_PW;
    const int stride = position_floats(p.kind);
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) {
            const float* cp = p.values + (4 * r + c) * stride;
            if (p.kind == POSITION_PZ) {
                geo->g[0][r][c] = static_cast<float>(mesh_place.iu * ustep + c) /
                                  static_cast<float>((mesh_place.nu - 1) * ustep + 4);
                geo->g[1][r][c] = static_cast<float>(mesh_place.iv * vstep + r) /
                                  static_cast<float>((mesh_place.nv - 1) * vstep + 4);
                geo->g[2][r][c] = cp[0];
                geo->g[3][r][c] = 1.0f;
            } else {
                for (int k = 0; k < 3; ++k) geo->g[k][r][c] = cp[k];
                geo->g[3][r][c] = geo->rational ? cp[3] : 1.0f;
            }
        }
    }
}

// Per coordinate k, row[k][c] = sum over r of b[r] x g[k][r][c]: the part of
// the blend shared by every point of one lattice row.
void blend_row(const Geometry& geo, const float b[4], int coordinates, float row[4][4]) {
    for (int k = 0; k < coordinates; ++k) {
        for (int c = 0; c < 4; ++c) {
            row[k][c] = b[0] * geo.g[k][0][c] + b[1] * geo.g[k][1][c] + b[2] * geo.g[k][2][c] +
                        b[3] * geo.g[k][3][c];
        }
    }
}

float dot4(const float x[4], const float y[4]) {
    return x[0] * y[0] + x[1] * y[1] + x[2] * y[2] + x[3] * y[3];
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
        float row[4][4];
        blend_row(geo, b.weights[j], geo.rational ? 4 : 3, row);
        for (int i = 0; i <= n; ++i) {
            float* out = grid[j][i];
            for (int k = 0; k < 3; ++k) out[k] = dot4(row[k], a.weights[i]);
            if (geo.rational) {
                const float inv_w = 1.0f / dot4(row[3], a.weights[i]);
                for (int k = 0; k < 3; ++k) out[k] *= inv_w;
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

// Copies the control points of patch (pu, pv) into out, u fastest.
void gather_patch(const float* values, int stride, const MeshDirection& u, const MeshDirection& v,
                  int pu, int pv, float* out) {
    for (int r = 0; r < v.order; ++r) {
        const int row = (pv * v.step + r) % v.points;
        for (int c = 0; c < u.order; ++c) {
            const int column = (pu * u.step + c) % u.points;
            const float* src = values + (static_cast<long long>(row) * u.points + column) * stride;
            std::memcpy(out, src, sizeof(float) * stride);
            out += stride;
        }
    }
}

void draw_mesh_patches(RtToken type, RtToken position_token, PatchPositions p,
                       const MeshDirection& u, const MeshDirection& v) {
    float points[16 * 4];
    const int stride = position_floats(p.kind);
    const int saved_motion = motion_level;
    for (int pv = 0; pv < v.patches; ++pv) {
        for (int pu = 0; pu < u.patches; ++pu) {
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
