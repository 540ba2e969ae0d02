// Marching tetrahedra over a sampled grid: each cell is cut into the six
// tetrahedra that share its diagonal from corner 0 to corner 7 (one for each
// order of the three axes), and the level set crosses each tetrahedron in
// nothing, one triangle or two (a quadrilateral). Cutting every cell the same
// way cuts each face shared by two cells along the same diagonal from both
// sides, so the surface has no cracks. Tetrahedra need no table of cases and
// no choice between ambiguous ones, at the price of more, thinner triangles
// than marching cubes.
#include "preview/isosurface.h"

#include <cstddef>
#include <unordered_map>
#include <utility>

namespace {

// Corner c of a cell is at offset (c & 1, c >> 1 & 1, c >> 2 & 1).
constexpr int TETRAHEDRA[6][4] = {{0, 1, 3, 7}, {0, 1, 5, 7}, {0, 2, 3, 7},
                                  {0, 2, 6, 7}, {0, 4, 5, 7}, {0, 4, 6, 7}};

struct Corner {
    float p[3];
    float value;
    long point;  // index of the grid point, which names the edges
};

class Extractor {
  public:
    Extractor(const SampledGrid& grid, float level, TriangleMesh* mesh)
        : grid_(grid), level_(level), mesh_(mesh) {}

    void cell(int i, int j, int k) {
        Corner c[8];
        int above = 0;
        for (int n = 0; n < 8; ++n) {
            const int di = n & 1, dj = (n >> 1) & 1, dk = (n >> 2) & 1;
            c[n].point = grid_.index(i + di, j + dj, k + dk);
            c[n].value = grid_.values[size_t(c[n].point)];
            c[n].p[0] = grid_.origin[0] + grid_.cell * float(i + di);
            c[n].p[1] = grid_.origin[1] + grid_.cell * float(j + dj);
            c[n].p[2] = grid_.origin[2] + grid_.cell * float(k + dk);
            if (c[n].value >= level_) ++above;
        }
        if (above == 0 || above == 8) return;
        for (const auto& t : TETRAHEDRA) tetrahedron(c[t[0]], c[t[1]], c[t[2]], c[t[3]]);
    }

  private:
    const SampledGrid& grid_;
    float level_;
    TriangleMesh* mesh_;
    std::unordered_map<uint64_t, uint32_t> crossings_;  // grid edge -> mesh point

    bool inside(const Corner& c) const { return c.value >= level_; }

    // The mesh point where the level crosses the edge from a (inside) to b.
    uint32_t crossing(const Corner& a, const Corner& b) {
        const uint64_t lo = uint64_t(a.point < b.point ? a.point : b.point);
        const uint64_t hi = uint64_t(a.point < b.point ? b.point : a.point);
        const uint64_t edge = (hi << 32) | lo;
        const auto found = crossings_.emplace(edge, 0u);
        if (!found.second) return found.first->second;
        mesh_->grid_edges.push_back(edge);
        const float t = (level_ - a.value) / (b.value - a.value);
        const auto index = uint32_t(mesh_->points.size() / 3);
        for (int k = 0; k < 3; ++k) mesh_->points.push_back(a.p[k] + t * (b.p[k] - a.p[k]));
        found.first->second = index;
        return index;
    }

    const float* point(uint32_t index) const { return &mesh_->points[3 * size_t(index)]; }

    // Adds the triangle facing outward (toward lower values); one whose
    // points coincide is left out.
    void triangle(uint32_t a, uint32_t b, uint32_t c, const float outward[3]) {
        if (a == b || b == c || a == c) return;
        const float *p = point(a), *q = point(b), *r = point(c);
        const float u[3] = {q[0] - p[0], q[1] - p[1], q[2] - p[2]};
        const float v[3] = {r[0] - p[0], r[1] - p[1], r[2] - p[2]};
        const float n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                            u[0] * v[1] - u[1] * v[0]};
        const float facing = n[0] * outward[0] + n[1] * outward[1] + n[2] * outward[2];
        if (n[0] == 0 && n[1] == 0 && n[2] == 0) return;
        if (facing < 0) std::swap(b, c);
        mesh_->triangles.insert(mesh_->triangles.end(), {a, b, c});
    }

    // The direction from the corners in to the corners out.
    static void outward(const Corner* in[], int nin, const Corner* out[], int nout,
                        float direction[3]) {
        for (int k = 0; k < 3; ++k) {
            float sum_in = 0, sum_out = 0;
            for (int n = 0; n < nin; ++n) sum_in += in[n]->p[k];
            for (int n = 0; n < nout; ++n) sum_out += out[n]->p[k];
            direction[k] = sum_out / float(nout) - sum_in / float(nin);
        }
    }

    void tetrahedron(const Corner& c0, const Corner& c1, const Corner& c2, const Corner& c3) {
        const Corner* all[4] = {&c0, &c1, &c2, &c3};
        const Corner *in[4], *out[4];
        int nin = 0, nout = 0;
        for (const Corner* c : all) {
            if (inside(*c)) {
                in[nin++] = c;
            } else {
                out[nout++] = c;
            }
        }
        if (nin == 0 || nout == 0) return;
        float direction[3];
        outward(in, nin, out, nout, direction);
        if (nin == 1) {
            triangle(crossing(*in[0], *out[0]), crossing(*in[0], *out[1]),
                     crossing(*in[0], *out[2]), direction);
        } else if (nin == 3) {
            triangle(crossing(*in[0], *out[0]), crossing(*in[1], *out[0]),
                     crossing(*in[2], *out[0]), direction);
        } else {
            // The quadrilateral in0-out0, in0-out1, in1-out1, in1-out0.
            const uint32_t a = crossing(*in[0], *out[0]), b = crossing(*in[0], *out[1]);
            const uint32_t c = crossing(*in[1], *out[1]), d = crossing(*in[1], *out[0]);
            triangle(a, b, c, direction);
            triangle(a, c, d, direction);
        }
    }
};

}  // namespace

void extract_level_set(const SampledGrid& grid, float level, TriangleMesh* mesh) {
    Extractor extractor(grid, level, mesh);
    for (int k = grid.first_cell[2]; k <= grid.last_cell[2]; ++k) {
        for (int j = grid.first_cell[1]; j <= grid.last_cell[1]; ++j) {
            for (int i = grid.first_cell[0]; i <= grid.last_cell[0]; ++i) extractor.cell(i, j, k);
        }
    }
}
